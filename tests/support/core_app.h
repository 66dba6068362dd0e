#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <functional>

namespace tappix::test {

/// The process's application object, made on first use: posted events and queued
/// calls are delivered only where one exists.
inline QCoreApplication& app() {
    static int argc = 1;
    static char name[] = "tappix_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* instance =
        QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    return instance ? *instance : *QCoreApplication::instance();
}

/// Runs the event loop (made on first use) until `done` holds; false after `ms`.
inline bool waitFor(const std::function<bool()>& done, int ms = 5000) {
    app();
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents();
        QThread::msleep(5);
    }
    return true;
}

} // namespace tappix::test

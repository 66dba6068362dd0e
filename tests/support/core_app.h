#pragma once

#include <QCoreApplication>

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

} // namespace tappix::test

#pragma once

#include "monitors/user_notifier.h"

#include <QHash>
#include <QObject>

namespace tappix {

/// User notifications through the desktop's notification service
/// (org.freedesktop.Notifications on the session bus), app name "Tappix". A new
/// notification with an identifier already shown replaces it (replaces_id). Calls are
/// asynchronous, so a missing bus or service never blocks; it is logged once.
class FreedesktopNotifier final : public QObject, public UserNotifier {
    Q_OBJECT
public:
    explicit FreedesktopNotifier(QObject* parent = nullptr);

    /// Posts asynchronously. Main thread.
    void post(const QString& identifier, const QString& title, const QString& body) override;

private:
    QHash<QString, uint> shown_;
    bool reportedFailure_ = false;
};

} // namespace tappix

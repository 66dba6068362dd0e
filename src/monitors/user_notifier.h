#pragma once

#include <QString>

namespace tappix {

/// Posts user notifications (the desktop's notification service on Linux). A newer
/// notification with the same identifier replaces the older one.
class UserNotifier {
public:
    virtual ~UserNotifier() = default;

    /// Posts at once, never blocking; failures are logged by the implementation, once.
    /// Main thread.
    virtual void post(const QString& identifier, const QString& title, const QString& body) = 0;
};

} // namespace tappix

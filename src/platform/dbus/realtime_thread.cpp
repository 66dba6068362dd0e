#include "platform/dbus/realtime_thread.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <cerrno>
#include <cstring>
#include <sched.h>
#include <sys/resource.h>

namespace tappix {

std::string RealtimeThread::makeRealtime(pid_t tid) {
    sched_param param{};
    param.sched_priority = kPriority;
    // SCHED_RESET_ON_FORK: a child of the thread never inherits the priority.
    if (sched_setscheduler(tid, SCHED_FIFO | SCHED_RESET_ON_FORK, &param) == 0)
        return {};
    const std::string direct = std::strerror(errno);

    // RealtimeKit grants it only to a process whose real-time CPU time is limited.
    rlimit limit{};
    if (getrlimit(RLIMIT_RTTIME, &limit) == 0 &&
        (limit.rlim_max == RLIM_INFINITY || limit.rlim_max > static_cast<rlim_t>(kMaxRunUs))) {
        limit.rlim_cur = limit.rlim_max = static_cast<rlim_t>(kMaxRunUs);
        setrlimit(RLIMIT_RTTIME, &limit);
    }
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected())
        return direct + "; no system bus for RealtimeKit";
    QDBusInterface kit("org.freedesktop.RealtimeKit1", "/org/freedesktop/RealtimeKit1",
                       "org.freedesktop.RealtimeKit1", bus);
    const QDBusReply<void> reply =
        kit.call("MakeThreadRealtime", QVariant::fromValue(static_cast<quint64>(tid)),
                 QVariant::fromValue(static_cast<quint32>(kPriority)));
    if (reply.isValid())
        return {};
    return direct + "; RealtimeKit: " + reply.error().message().toStdString();
}

} // namespace tappix

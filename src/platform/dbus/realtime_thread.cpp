#include "platform/dbus/realtime_thread.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <cerrno>
#include <cstring>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

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
    // A plain call with a short timeout: no introspection round trip, and a stuck
    // RealtimeKit cannot hold up the caller for D-Bus's default 25 s.
    QDBusMessage call = QDBusMessage::createMethodCall(
        "org.freedesktop.RealtimeKit1", "/org/freedesktop/RealtimeKit1",
        "org.freedesktop.RealtimeKit1", "MakeThreadRealtime");
    call << QVariant::fromValue(static_cast<quint64>(tid))
         << QVariant::fromValue(static_cast<quint32>(kPriority));
    const QDBusMessage reply = bus.call(call, QDBus::Block, kCallTimeoutMs);
    if (reply.type() == QDBusMessage::ReplyMessage)
        return {};
    return direct + "; RealtimeKit: " + reply.errorMessage().toStdString();
}

bool RealtimeThread::makeCallingThreadRealtime(const char* name, const QLoggingCategory& category) {
    const std::string why = makeRealtime(gettid());
    if (!why.empty())
        qCWarning(category, "%s runs at normal priority (%s)", name, why.c_str());
    return why.empty();
}

} // namespace tappix

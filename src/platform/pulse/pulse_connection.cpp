#include "platform/pulse/pulse_connection.h"

#include "core/log.h"

namespace tappix {

PulseConnection::PulseConnection(std::string clientName, std::string threadName, Handlers handlers)
    : clientName_(std::move(clientName)), threadName_(std::move(threadName)),
      handlers_(std::move(handlers)) {
    mainloop_ = pa_threaded_mainloop_new();
}

PulseConnection::~PulseConnection() {
    stop();
    if (mainloop_)
        pa_threaded_mainloop_free(mainloop_);
}

bool PulseConnection::start() {
    if (!mainloop_ || running_)
        return running_;
    pa_threaded_mainloop_set_name(mainloop_, threadName_.c_str());
    if (pa_threaded_mainloop_start(mainloop_) < 0)
        return false;
    running_ = true;
    lock();
    connect();
    unlock();
    return true;
}

void PulseConnection::stop() {
    if (!running_)
        return;
    lock();
    if (retry_) {
        api()->time_free(retry_);
        retry_ = nullptr;
    }
    dropContext();
    unlock();
    pa_threaded_mainloop_stop(mainloop_);
    running_ = false;
}

pa_context* PulseConnection::readyContext() const {
    return context_ && pa_context_get_state(context_) == PA_CONTEXT_READY ? context_ : nullptr;
}

bool PulseConnection::waitFor(const std::function<bool()>& done, int timeoutMs) {
    if (done() || timeoutMs <= 0 || inLoopThread())
        return done();
    struct Timeout {
        PulseConnection* connection;
        bool expired = false;
    } timeout{this};
    timeval when{};
    pa_timeval_add(pa_gettimeofday(&when), static_cast<pa_usec_t>(timeoutMs) * PA_USEC_PER_MSEC);
    pa_time_event* timer = api()->time_new(
        api(), &when,
        [](pa_mainloop_api* loop, pa_time_event* event, const timeval*, void* data) {
            auto* t = static_cast<Timeout*>(data);
            t->expired = true;
            loop->time_free(event);
            t->connection->signal();
        },
        &timeout);
    while (!done() && !timeout.expired)
        wait();
    if (!timeout.expired)
        api()->time_free(timer);
    return done();
}

pa_context* PulseConnection::waitReady(int timeoutMs) {
    waitFor(
        [this] {
            if (!context_)
                return true;
            const pa_context_state_t state = pa_context_get_state(context_);
            return state != PA_CONTEXT_UNCONNECTED && state != PA_CONTEXT_CONNECTING &&
                   state != PA_CONTEXT_AUTHORIZING && state != PA_CONTEXT_SETTING_NAME;
        },
        timeoutMs);
    return readyContext();
}

void PulseConnection::connect() {
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Tappix");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ID, "app.morvane.tappix");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ICON_NAME, "input-keyboard");
    context_ = pa_context_new_with_proplist(api(), clientName_.c_str(), props);
    pa_proplist_free(props);
    if (!context_) {
        scheduleRetry();
        return;
    }
    pa_context_set_state_callback(context_, &PulseConnection::onContextState, this);
    // NOAUTOSPAWN: never start a server of our own; follow the user's.
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        dropContext();
        scheduleRetry();
    }
}

void PulseConnection::dropContext() {
    if (!context_)
        return;
    pa_context_set_state_callback(context_, nullptr, nullptr);
    pa_context_disconnect(context_);
    pa_context_unref(context_);
    context_ = nullptr;
}

void PulseConnection::scheduleRetry() {
    if (retry_)
        return;
    timeval when{};
    pa_timeval_add(pa_gettimeofday(&when), static_cast<pa_usec_t>(kRetryMs) * PA_USEC_PER_MSEC);
    retry_ = api()->time_new(api(), &when, &PulseConnection::onRetry, this);
}

void PulseConnection::onRetry(pa_mainloop_api* api, pa_time_event* event, const timeval*,
                              void* self) {
    auto* connection = static_cast<PulseConnection*>(self);
    api->time_free(event);
    connection->retry_ = nullptr;
    connection->connect();
}

void PulseConnection::onContextState(pa_context* context, void* self) {
    auto* connection = static_cast<PulseConnection*>(self);
    switch (pa_context_get_state(context)) {
    case PA_CONTEXT_READY:
        if (connection->reportedDown_)
            qCInfo(lcAudio, "sound server is back");
        connection->reportedDown_ = false;
        if (connection->handlers_.ready)
            connection->handlers_.ready(context);
        connection->signal();
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        // Log once per outage, not once per retry.
        if (!connection->reportedDown_)
            qCWarning(lcAudio, "sound server unavailable (%s); reconnecting",
                      pa_strerror(pa_context_errno(context)));
        connection->reportedDown_ = true;
        if (connection->handlers_.lost)
            connection->handlers_.lost();
        connection->dropContext();
        connection->scheduleRetry();
        connection->signal();
        break;
    default:
        break;
    }
}

} // namespace tappix

#pragma once

#include <functional>
#include <pulse/pulseaudio.h>
#include <string>

namespace tappix {

/// A PulseAudio context on its own threaded main loop that keeps itself connected:
/// when the server is missing, dies or restarts, it reconnects by itself every
/// `kRetryMs`. Users run their work on the loop's thread (callbacks) or under `lock`.
class PulseConnection {
public:
    /// How often a lost connection is retried.
    static constexpr int kRetryMs = 250;

    /// Called on the loop thread when the context becomes ready (again), and when it is lost.
    struct Handlers {
        /// The context is ready: create streams, subscribe.
        std::function<void(pa_context*)> ready;
        /// The context failed or was lost; objects made on it are gone.
        std::function<void()> lost;
    };

    /// Names the client `clientName` and the loop thread `threadName`.
    PulseConnection(std::string clientName, std::string threadName, Handlers handlers);
    /// Stops the loop and disconnects.
    ~PulseConnection();

    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    /// Starts the loop and the first connection attempt; false if the loop cannot run.
    /// Controlling thread.
    bool start();
    /// Stops the loop (joins its thread) and drops the context. Controlling thread.
    void stop();

    /// Takes the loop lock (not from the loop thread itself).
    void lock() { pa_threaded_mainloop_lock(mainloop_); }
    /// Releases the loop lock.
    void unlock() { pa_threaded_mainloop_unlock(mainloop_); }
    /// Wakes a thread blocked in `wait` (loop thread or under the lock).
    void signal() { pa_threaded_mainloop_signal(mainloop_, 0); }
    /// Waits for `signal` with the lock held.
    void wait() { pa_threaded_mainloop_wait(mainloop_); }

    /// The context when ready, else null (under the lock or on the loop thread).
    pa_context* readyContext() const;

    /// Like `readyContext`, but while a connection is still being made waits for it
    /// up to `timeoutMs` (under the lock; never on the loop thread).
    pa_context* waitReady(int timeoutMs);

    /// Waits until `done()` holds or `timeoutMs` pass, woken by `signal`; returns
    /// `done()`. Under the lock; never on the loop thread.
    bool waitFor(const std::function<bool()>& done, int timeoutMs);
    /// The loop's API, for timers (under the lock or on the loop thread).
    pa_mainloop_api* api() const { return pa_threaded_mainloop_get_api(mainloop_); }
    /// Whether the loop thread is the caller.
    bool inLoopThread() const { return pa_threaded_mainloop_in_thread(mainloop_) != 0; }

private:
    static void onContextState(pa_context* context, void* self);
    static void onRetry(pa_mainloop_api*, pa_time_event* event, const struct timeval*, void* self);
    void connect();
    void scheduleRetry();
    void dropContext();

    std::string clientName_;
    std::string threadName_;
    Handlers handlers_;
    pa_threaded_mainloop* mainloop_ = nullptr;
    pa_context* context_ = nullptr;
    pa_time_event* retry_ = nullptr;
    bool running_ = false;
    bool reportedDown_ = false;
};

} // namespace tappix

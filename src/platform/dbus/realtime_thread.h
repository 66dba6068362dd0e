#pragma once

#include <QLoggingCategory>
#include <string>
#include <sys/types.h>

namespace tappix {

/// Real-time scheduling for one thread of this process, the way desktop sound
/// programs get it: directly where the process may (root, or an rtprio limit from
/// the audio group), else through RealtimeKit on the system bus. A thread at even
/// the lowest real-time priority runs as soon as it wakes, ahead of every ordinary
/// process, so a parallel build cannot hold back the sound it is about to send.
class RealtimeThread final {
public:
    /// The real-time priority asked for: the lowest, below the sound servers' own
    /// threads (PulseAudio 5, PipeWire 88), so they still go first.
    static constexpr int kPriority = 1;
    /// The CPU time a real-time thread may use without blocking, which RealtimeKit
    /// requires to be limited; the loop blocks every few milliseconds.
    static constexpr long kMaxRunUs = 200000;
    /// How long the request to RealtimeKit may take.
    static constexpr int kCallTimeoutMs = 500;

    /// Makes thread `tid` (of this process) real-time at `kPriority`. Returns an empty
    /// string when it is, else why not (for one log line). Blocks for up to
    /// `kCallTimeoutMs`; any thread.
    static std::string makeRealtime(pid_t tid);

    /// Makes the calling thread real-time, as `makeRealtime` does; when it cannot, says
    /// so in the log under `category` ("<name> runs at normal priority (why)"). Returns
    /// whether it is. Blocks as `makeRealtime`; any thread.
    static bool makeCallingThreadRealtime(const char* name, const QLoggingCategory& category);
};

} // namespace tappix

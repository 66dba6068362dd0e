#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <vector>

class QTextStream;

namespace tappix {

class RemoteControlClient;

/// Tappix's command line: with no option it starts the application; --help and
/// --version print and exit; the remote-control options (--toggle, --on, --off,
/// --volume N, --kit ID, --mix ID|none, --panel, --settings [PAGE], --status,
/// --quit) drive the Tappix that runs and exit. Exit codes: 0 done, 1 refused or no
/// Tappix running (with a message), 2 a usage error (the usage on stderr).
/// Parsing needs no application object; `run` needs a QCoreApplication.
class CommandLine {
public:
    static constexpr int kExitOk = 0;
    static constexpr int kExitFailed = 1;
    static constexpr int kExitUsage = 2;

    /// What the arguments ask for.
    enum class Mode {
        /// Start Tappix (or hand over to the one that runs).
        start,
        help,
        version,
        /// An unknown option or a malformed combination: usage, exit 2.
        usageError,
        /// A value the running Tappix would refuse anyway: message, exit 1.
        badValue,
        /// Requests for the running Tappix.
        remote,
    };

    /// One request for the running Tappix, applied in the order listed.
    struct Request {
        enum class Kind {
            setKit,
            setMix,
            setVolume,
            setEnabled,
            toggle,
            showPanel,
            openSettings,
            status,
            quit
        };
        Kind kind;
        /// The new value: kit or mix id ("" for no mix), volume 0-1, enabled, page.
        QVariant value;

        friend bool operator==(const Request&, const Request&) = default;
    };

    /// Parses `arguments` (the program name first, as in argv).
    explicit CommandLine(const QStringList& arguments);

    /// argv as a list, decoded from the locale's encoding.
    static QStringList fromArgv(int argc, char** argv);

    /// What the arguments ask for.
    Mode mode() const { return mode_; }
    /// The requests, in the order they run (remote mode).
    const std::vector<Request>& requests() const { return requests_; }
    /// Whether this start takes over from a running Tappix that started it again with a
    /// group it lacked (start mode).
    bool takeOver() const { return takeOver_; }
    /// Why parsing failed (usage error, bad value).
    const QString& error() const { return error_; }
    /// The usage text that --help prints.
    QString usage() const { return usage_; }

    /// Prints help or version, reports a bad command line, or sends the requests
    /// through `client`; returns the exit code. Never for `Mode::start`.
    int run(const RemoteControlClient& client, QTextStream& out, QTextStream& err) const;

    /// `run` in a process of its own, before any other application object exists:
    /// a plain QCoreApplication (no display needed), the session bus, stdout and
    /// stderr. Returns the exit code. Never for `Mode::start`.
    int exec(int& argc, char** argv) const;

private:
    int runRemote(const RemoteControlClient& client, QTextStream& out, QTextStream& err) const;

    Mode mode_ = Mode::start;
    std::vector<Request> requests_;
    QString error_;
    QString usage_;
    bool takeOver_ = false;
};

} // namespace tappix

#pragma once

#include <QProcess>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace tappix::test {

/// Ties the program `process` starts next to this test process: the program gets
/// `signal` when the test is gone, however it ended. A runner's timeout kills only the
/// test, and a server or recorder left behind would run (and write) for ever.
/// `ownGroup` also makes the program lead a process group of its own, so that a kill of
/// the group takes everything it started.
inline void leash(QProcess& process, int signal = SIGKILL, bool ownGroup = false) {
    process.setChildProcessModifier([test = ::getpid(), signal, ownGroup] {
        if (ownGroup)
            ::setsid();
        ::prctl(PR_SET_PDEATHSIG, signal);
        if (::getppid() != test) // the test ended before the leash was on
            ::_exit(1);
    });
}

} // namespace tappix::test

#pragma once

#include <filesystem>
#include <fstream>
#include <sched.h>
#include <string>
#include <vector>

namespace tappix::test {

/// The scheduling policy of each of this process's threads named `name`, without the
/// reset-on-fork flag: SCHED_FIFO for a real-time thread, SCHED_OTHER for an ordinary one.
inline std::vector<int> schedulingPolicies(const std::string& name) {
    std::vector<int> policies;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream comm(task.path() / "comm");
        std::string line;
        if (std::getline(comm, line) && line == name)
            policies.push_back(sched_getscheduler(std::stoi(task.path().filename())) &
                               ~SCHED_RESET_ON_FORK);
    }
    return policies;
}

} // namespace tappix::test

#pragma once

#include "input/keyboard_access.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace tappix::evdev {

/// Where the kernel lists input devices and what each reports.
inline constexpr const char* kInputDirectory = "/dev/input";
inline constexpr const char* kInputSysfsDirectory = "/sys/class/input";

/// One keyboard's device node, as this process sees it.
struct KeyboardNode {
    /// e.g. /dev/input/event3.
    std::string path;
    /// Whether this process may open it for reading.
    bool readable = false;
    /// The group that owns it.
    gid_t group = 0;
    /// Whether its mode lets that group read it.
    bool groupMayRead = false;
};

/// The keyboards among the event nodes in `directory`. A node is a keyboard when the
/// kernel's list of its keys (under `sysfs`) has letters and Space; a node the kernel
/// says nothing about is asked once it can be opened, and counts while it cannot, so
/// that the group which may read it is still known. Opens nothing when the kernel
/// answers, so it is cheap enough to poll every second. Any thread.
std::vector<KeyboardNode> keyboardNodes(const std::string& directory = kInputDirectory,
                                        const std::string& sysfs = kInputSysfsDirectory);

/// Whether this process may read the keyboards, and which group would let it: the
/// group that may read most of the keyboards' nodes, this user's membership of it by
/// the group database (read afresh, so a change made a moment ago shows) and whether
/// this process holds it. Any thread.
KeyboardAccess keyboardAccess(const std::string& directory = kInputDirectory,
                              const std::string& sysfs = kInputSysfsDirectory);

} // namespace tappix::evdev

#include "platform/evdev/keyboard_nodes.h"

#include "platform/evdev/evdev_capture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <grp.h>
#include <linux/input-event-codes.h>
#include <map>
#include <mutex>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace tappix::evdev {
namespace {

/// What the kernel's capability list says about a node: a keyboard, not one, or
/// nothing (no list there).
enum class Kernel { keyboard, other, silent };

constexpr unsigned int kKeyboardKeys[] = {KEY_Q, KEY_A, KEY_Z, KEY_SPACE};

Kernel kernelSays(const std::string& sysfs, const std::string& node) {
    std::ifstream file(sysfs + "/" + node + "/device/capabilities/key");
    std::string line;
    if (!file || !std::getline(file, line))
        return Kernel::silent;
    // Words of the kernel's long, most significant first, leading zero words left out.
    std::vector<unsigned long> words;
    std::istringstream in(line);
    std::string word;
    while (in >> word) {
        char* end = nullptr;
        words.push_back(std::strtoul(word.c_str(), &end, 16));
        if (*end != '\0')
            return Kernel::silent;
    }
    std::reverse(words.begin(), words.end());
    constexpr unsigned int kBits = sizeof(unsigned long) * 8;
    for (const unsigned int key : kKeyboardKeys) {
        if (key / kBits >= words.size() || !(words[key / kBits] >> (key % kBits) & 1UL))
            return Kernel::other;
    }
    return Kernel::keyboard;
}

/// What opened nodes said, by node and inode, so a poll asks each device only once.
bool askedIsKeyboard(const std::string& path, ino_t inode) {
    static std::mutex mutex;
    static std::map<std::string, std::pair<ino_t, bool>> known;
    const std::lock_guard lock(mutex);
    if (auto it = known.find(path); it != known.end() && it->second.first == inode)
        return it->second.second;
    const bool keyboard = probeDevice(path).keyboard;
    known[path] = {inode, keyboard};
    return keyboard;
}

std::string groupName(gid_t gid) {
    std::vector<char> buffer(16384);
    group entry{};
    group* found = nullptr;
    if (::getgrgid_r(gid, &entry, buffer.data(), buffer.size(), &found) != 0 || !found)
        return {};
    return found->gr_name;
}

bool inDatabase(gid_t gid) {
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* user = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &user) != 0 || !user)
        return false;
    if (user->pw_gid == gid)
        return true;
    int count = 64;
    std::vector<gid_t> groups(count);
    if (::getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) < 0) {
        groups.resize(count);
        if (::getgrouplist(user->pw_name, user->pw_gid, groups.data(), &count) < 0)
            return false;
    }
    groups.resize(count);
    return std::find(groups.begin(), groups.end(), gid) != groups.end();
}

bool inProcess(gid_t gid) {
    if (::getgid() == gid || ::getegid() == gid)
        return true;
    const int count = ::getgroups(0, nullptr);
    std::vector<gid_t> groups(std::max(count, 0));
    if (count <= 0 || ::getgroups(count, groups.data()) < 0)
        return false;
    return std::find(groups.begin(), groups.end(), gid) != groups.end();
}

} // namespace

std::vector<KeyboardNode> keyboardNodes(const std::string& directory, const std::string& sysfs) {
    std::vector<KeyboardNode> nodes;
    DIR* dir = ::opendir(directory.c_str());
    if (!dir)
        return nodes;
    while (const dirent* entry = ::readdir(dir)) {
        if (std::strncmp(entry->d_name, "event", 5) != 0)
            continue;
        KeyboardNode node;
        node.path = directory + "/" + entry->d_name;
        struct stat info {};
        if (::stat(node.path.c_str(), &info) != 0)
            continue;
        node.readable = ::access(node.path.c_str(), R_OK) == 0;
        node.group = info.st_gid;
        node.groupMayRead = (info.st_mode & S_IRGRP) != 0;
        const Kernel kernel = kernelSays(sysfs, entry->d_name);
        const bool keyboard = kernel == Kernel::keyboard ||
                              (kernel == Kernel::silent &&
                               (!node.readable || askedIsKeyboard(node.path, info.st_ino)));
        if (keyboard)
            nodes.push_back(std::move(node));
    }
    ::closedir(dir);
    std::sort(nodes.begin(), nodes.end(),
              [](const KeyboardNode& a, const KeyboardNode& b) { return a.path < b.path; });
    return nodes;
}

KeyboardAccess keyboardAccess(const std::string& directory, const std::string& sysfs) {
    const std::vector<KeyboardNode> nodes = keyboardNodes(directory, sysfs);
    KeyboardAccess::Facts facts;
    facts.keyboards = !nodes.empty();
    // The group that may read most keyboards; root's never counts, as no one joins it.
    std::map<gid_t, int> votes;
    for (const KeyboardNode& node : nodes) {
        facts.readable |= node.readable;
        if (node.groupMayRead && node.group != 0)
            ++votes[node.group];
    }
    const auto best =
        std::max_element(votes.begin(), votes.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    if (best != votes.end()) {
        facts.group = groupName(best->first);
        if (!facts.group.empty()) {
            facts.memberInDatabase = inDatabase(best->first);
            facts.groupInProcess = inProcess(best->first);
        }
    }
    return KeyboardAccess::from(facts);
}

} // namespace tappix::evdev

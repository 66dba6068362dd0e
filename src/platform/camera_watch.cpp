#include "platform/camera_watch.h"

#include "core/log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace tappix {
namespace {

constexpr char kNodePrefix[] = "video";

bool isVideoNode(const char* name) {
    return std::strncmp(name, kNodePrefix, sizeof kNodePrefix - 1) == 0;
}

bool isDigits(const char* text) {
    if (!*text)
        return false;
    for (; *text; ++text) {
        if (*text < '0' || *text > '9')
            return false;
    }
    return true;
}

} // namespace

CameraWatch::CameraWatch(std::string deviceDirectory, std::string procRoot)
    : deviceDirectory_(std::move(deviceDirectory)), procRoot_(std::move(procRoot)) {}

CameraWatch::~CameraWatch() {
    if (inotifyFd_ >= 0)
        ::close(inotifyFd_);
}

bool CameraWatch::inUse() {
    const std::lock_guard lock(mutex_);
    if (!begun_) {
        begun_ = true;
        begin();
        return inUse_;
    }
    if (inotifyFd_ < 0)
        return anyProcessHoldsANode();

    // Only the last thing that happened matters: an open means in use; after a close,
    // a node coming or going, or lost events, the processes tell.
    bool opened = false;
    bool walk = false;
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(inotifyFd_, buffer, sizeof buffer);
        if (n <= 0)
            break;
        for (ssize_t offset = 0; offset < n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (directoryWatch_ >= 0 && event->wd == directoryWatch_) {
                if (event->len == 0 || !isVideoNode(event->name))
                    continue;
                if (event->mask & (IN_CREATE | IN_MOVED_TO | IN_ATTRIB))
                    watchNode(event->name);
                if (event->mask & IN_ATTRIB)
                    continue; // permissions changed: nothing was opened or closed
            } else if (event->mask & IN_IGNORED) {
                nodes_.erase(event->wd);
            } else if (event->mask & IN_OPEN) {
                opened = true;
                walk = false;
                continue;
            }
            opened = false;
            walk = true;
        }
    }
    if (opened)
        inUse_ = true;
    else if (walk || !unwatched_.empty())
        inUse_ = anyProcessHoldsANode();
    return inUse_;
}

void CameraWatch::begin() {
    inotifyFd_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (inotifyFd_ < 0) {
        qCInfo(lcAudio, "cannot watch the cameras (%s): every question looks through the processes",
               std::strerror(errno));
    } else {
        directoryWatch_ =
            ::inotify_add_watch(inotifyFd_, deviceDirectory_.c_str(),
                                IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ATTRIB);
        if (directoryWatch_ < 0)
            qCInfo(lcAudio, "cannot watch %s for cameras plugged in: %s", deviceDirectory_.c_str(),
                   std::strerror(errno));
        if (DIR* dir = ::opendir(deviceDirectory_.c_str())) {
            while (const dirent* entry = ::readdir(dir)) {
                if (isVideoNode(entry->d_name))
                    watchNode(entry->d_name);
            }
            ::closedir(dir);
        }
    }
    // After the watches begin: an open in between is seen by both, and a close too.
    inUse_ = anyProcessHoldsANode();
}

void CameraWatch::watchNode(const std::string& name) {
    if (std::any_of(nodes_.begin(), nodes_.end(),
                    [&](const auto& node) { return node.second == name; }))
        return;
    const std::string path = deviceDirectory_ + "/" + name;
    const int watch = ::inotify_add_watch(inotifyFd_, path.c_str(), IN_OPEN | IN_CLOSE);
    if (watch < 0) {
        if (unwatched_.insert(name).second)
            qCInfo(lcAudio, "cannot watch %s (%s): every question looks through the processes",
                   path.c_str(), std::strerror(errno));
        return;
    }
    unwatched_.erase(name);
    nodes_[watch] = name;
}

bool CameraWatch::anyProcessHoldsANode() const {
    const std::string prefix = deviceDirectory_ + "/" + kNodePrefix;
    DIR* processes = ::opendir(procRoot_.c_str());
    if (!processes)
        return false;
    bool found = false;
    while (!found) {
        const dirent* process = ::readdir(processes);
        if (!process)
            break;
        if (!isDigits(process->d_name))
            continue;
        const std::string fdDir = procRoot_ + "/" + process->d_name + "/fd";
        DIR* fds = ::opendir(fdDir.c_str()); // other users' processes are unreadable: skipped
        if (!fds)
            continue;
        while (const dirent* fd = ::readdir(fds)) {
            char target[256];
            const std::string link = fdDir + "/" + fd->d_name;
            const ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
            if (n <= 0)
                continue;
            target[n] = '\0';
            if (std::strncmp(target, prefix.c_str(), prefix.size()) == 0) {
                found = true;
                break;
            }
        }
        ::closedir(fds);
    }
    ::closedir(processes);
    return found;
}

} // namespace tappix

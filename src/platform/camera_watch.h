#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>

namespace tappix {

/// Whether some process holds a camera (a video node, /dev/video*) open, without walking
/// every process on each question. An inotify watch on each video node reports its opens
/// and closes, and one on the device directory the nodes that come and go; a question
/// reads what they reported and costs one read that finds nothing while nothing changes.
///
/// The processes' open files (`procRoot`/*/fd) are walked only when the watch cannot
/// tell: once at the first question (a camera may be open already), when a node appears
/// (it may be opened before its watch begins), and after a close (another process may
/// still hold it). A node that cannot be watched (no read access to it) is looked for
/// by that walk on every question, as is every node when inotify is not available.
/// Any thread; questions are answered one at a time.
class CameraWatch {
public:
    /// Watches the video nodes in `deviceDirectory`; nothing is opened until the first
    /// question.
    explicit CameraWatch(std::string deviceDirectory = "/dev", std::string procRoot = "/proc");
    ~CameraWatch();

    CameraWatch(const CameraWatch&) = delete;
    CameraWatch& operator=(const CameraWatch&) = delete;

    /// Whether some process holds a video node open now. Any thread.
    bool inUse();

private:
    /// Sets up the watches and walks the processes once. Under the lock.
    void begin();
    /// Watches the video node `name` in the device directory. Under the lock.
    void watchNode(const std::string& name);
    /// Whether any process under `procRoot_` holds a video node open.
    bool anyProcessHoldsANode() const;

    const std::string deviceDirectory_;
    const std::string procRoot_;
    std::mutex mutex_;
    bool begun_ = false;
    int inotifyFd_ = -1;
    int directoryWatch_ = -1;
    /// Watched nodes by watch descriptor.
    std::map<int, std::string> nodes_;
    /// Nodes that could not be watched: while there are any, every question walks.
    std::set<std::string> unwatched_;
    bool inUse_ = false;
};

} // namespace tappix

#pragma once

// Shared by the fuzz targets: turning fuzzer bytes into the inputs Tappix reads.

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace tappix::fuzz {

/// The fuzzer's bytes as a QByteArray, without a copy.
inline QByteArray bytes(const std::uint8_t* data, std::size_t size) {
    return QByteArray::fromRawData(reinterpret_cast<const char*>(data),
                                   static_cast<qsizetype>(size));
}

/// A file in memory whose contents each run replaces: for readers that want a path.
class MemoryFile {
public:
    MemoryFile() : fd_(::memfd_create("tappix-fuzz", MFD_CLOEXEC)) {}
    ~MemoryFile() { ::close(fd_); }

    /// Replaces the contents and returns a path that opens them.
    QString write(const std::uint8_t* data, std::size_t size) {
        if (::ftruncate(fd_, 0) != 0 || ::pwrite(fd_, data, size, 0) != static_cast<ssize_t>(size))
            return {};
        return QStringLiteral("/proc/self/fd/%1").arg(fd_);
    }

private:
    int fd_;
};

} // namespace tappix::fuzz

#pragma once

#include <QString>

namespace tappix {

/// Tappix's XDG autostart entry, `$XDG_CONFIG_HOME/autostart/app.morvane.tappix.desktop`:
/// what desktops read to start Tappix at login. Main thread.
class AutostartEntry {
public:
    /// The entry in the user's autostart folder.
    AutostartEntry();
    /// The entry at `path` (tests).
    explicit AutostartEntry(QString path) : path_(std::move(path)) {}

    /// Where the entry lives.
    const QString& path() const { return path_; }
    /// Whether Tappix starts at login: the entry exists and is not marked Hidden.
    bool isEnabled() const;
    /// Writes an entry that starts `program` (atomically), or removes it; false with a
    /// log line when the file system refuses.
    bool setEnabled(bool enabled, const QString& program);

private:
    QString path_;
};

} // namespace tappix

#pragma once

#include <QString>
#include <functional>

namespace tappix {

/// Asks the desktop's file manager, over the session bus (org.freedesktop.FileManager1
/// ShowItems), to show `path` selected in its folder; calls `otherwise` on the main
/// thread when no file manager answers or it refuses. Never waits. Main thread.
void showInFileManager(const QString& path, std::function<void()> otherwise);

} // namespace tappix

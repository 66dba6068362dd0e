#pragma once

#include <QIcon>
#include <QString>

namespace tappix {

/// Tappix's own drawn symbols, from the UI module's resources.
namespace SymbolIcons {

/// Where the symbol files live, for views: "qrc:/Tappix/Ui/icons/".
QString resourceBase();
/// The tray icon: the filled keyboard while sounds are on, the outlined one while off,
/// drawn faint when `dimmed`.
QIcon trayIcon(bool soundsOn, bool dimmed);
/// The application's mark (window icons).
QIcon applicationIcon();

} // namespace SymbolIcons

} // namespace tappix

#include "platform/focus_backends.h"

#include "platform/dbus/kwin_focus_source.h"
#include "platform/null/null_focus_source.h"

#ifdef TAPPIX_WITH_X11
#include "platform/x11/x11_capture.h"
#include "platform/x11/x11_focus_source.h"
#endif

namespace tappix {

std::unique_ptr<FocusSource> makeFocusSource() {
#ifdef TAPPIX_WITH_X11
    if (!x11::isWaylandSession())
        return std::make_unique<x11::X11FocusSource>();
#endif
    // On Wayland only the compositor knows; KWin can be asked.
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (KWinFocusSource::kwinRunning(bus)) {
        auto kwin = std::make_unique<KWinFocusSource>(bus);
        if (kwin->unavailableReason().isEmpty())
            return kwin;
    }
#ifdef TAPPIX_WITH_X11
    return std::make_unique<x11::X11FocusSource>(); // says why Wayland shows nothing
#else
    return std::make_unique<NullFocusSource>(
        QStringLiteral("This build of Tappix cannot see which window is in front."));
#endif
}

} // namespace tappix

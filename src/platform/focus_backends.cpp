#include "platform/focus_backends.h"

#include "platform/null/null_focus_source.h"

#ifdef TAPPIX_WITH_X11
#include "platform/x11/x11_focus_source.h"
#endif

namespace tappix {

std::unique_ptr<FocusSource> makeFocusSource() {
#ifdef TAPPIX_WITH_X11
    return std::make_unique<x11::X11FocusSource>();
#else
    return std::make_unique<NullFocusSource>(
        QStringLiteral("This build of Tappix cannot see which window is in front."));
#endif
}

} // namespace tappix

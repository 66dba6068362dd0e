#include "platform/x11/x11_compositor.h"

#include <X11/Xlib.h>
#include <string>

namespace tappix {

bool x11CompositorIsRunning(Display* display) {
    if (!display)
        return false;
    // Compositing managers announce themselves by owning _NET_WM_CM_S<screen>.
    const std::string name = "_NET_WM_CM_S" + std::to_string(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.c_str(), False);
    return selection != None && XGetSelectionOwner(display, selection) != None;
}

} // namespace tappix

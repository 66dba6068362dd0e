#pragma once

struct _XDisplay;

namespace tappix {

/// Whether a compositing manager owns the display's default screen, so that the clear
/// parts of a window with an alpha channel show what lies below it. Without one they
/// show black. Any thread that may use `display`.
bool x11CompositorIsRunning(_XDisplay* display);

} // namespace tappix

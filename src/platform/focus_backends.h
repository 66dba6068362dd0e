#pragma once

#include "monitors/focus_source.h"

#include <memory>

namespace tappix {

/// The source of the window in front for this session: X11's when the build has it and
/// the session is not Wayland; in a Wayland session KWin's when KWin is on the session
/// bus and runs Tappix's script; else one that sees nothing and says why. Main thread;
/// the Qt event loop delivers its changes.
std::unique_ptr<FocusSource> makeFocusSource();

} // namespace tappix

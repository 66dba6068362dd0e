#pragma once

#include "input/capture_source.h"

namespace tappix {

/// A capture source that is never available: stands in for a backend the build
/// left out, and for tests that must capture nothing.
class NullCapture final : public CaptureSource {
public:
    /// Always false: nothing to start.
    bool start(CaptureSink&) override { return false; }
    /// Nothing to stop.
    void stop() override {}
};

} // namespace tappix

#pragma once

#include "audio/audio_output.h"

namespace tappix {

/// An output that plays nowhere: stands in when the build has no sound-server backend.
class NullOutput final : public AudioOutput {
public:
    bool start(Mixer&) override { return false; }
    void stop() override {}
    void setDevice(const std::optional<std::string>&) override {}
    bool isPlaying() const override { return false; }
    double latencySeconds() const override { return 0.0; }
};

} // namespace tappix

#pragma once

#include "audio/audio_device_manager.h"
#include "audio/audio_output.h"
#include "audio/microphone.h"
#include "core/sample_decoder.h"

#include <memory>

namespace tappix {

/// The sound-server output this build has (PulseAudio), or a null one.
std::unique_ptr<AudioOutput> makeAudioOutput();

/// Device queries over the sound server this build has, or null answers.
std::unique_ptr<AudioDeviceManager> makeAudioDeviceManager();

/// The default microphone on the sound server this build has, or null when the build
/// has no sound server to record from.
std::unique_ptr<Microphone> makeMicrophone();

/// The sample-file decoder (libsndfile with libsoxr).
std::unique_ptr<SampleDecoder> makeSampleDecoder();

} // namespace tappix

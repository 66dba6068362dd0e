#include "platform/audio_backends.h"

#include "platform/null/null_output.h"
#include "platform/sndfile/sndfile_decoder.h"

#ifdef TAPPIX_WITH_PULSE
#include "platform/pulse/pulse_device_manager.h"
#include "platform/pulse/pulse_microphone.h"
#include "platform/pulse/pulse_output.h"
#endif

namespace tappix {

std::unique_ptr<AudioOutput> makeAudioOutput() {
#ifdef TAPPIX_WITH_PULSE
    return std::make_unique<PulseOutput>();
#else
    return std::make_unique<NullOutput>();
#endif
}

std::unique_ptr<AudioDeviceManager> makeAudioDeviceManager() {
#ifdef TAPPIX_WITH_PULSE
    return std::make_unique<PulseDeviceManager>();
#else
    return std::make_unique<NullAudioDeviceManager>();
#endif
}

std::unique_ptr<Microphone> makeMicrophone() {
#ifdef TAPPIX_WITH_PULSE
    return std::make_unique<PulseMicrophone>();
#else
    return nullptr;
#endif
}

std::unique_ptr<SampleDecoder> makeSampleDecoder() {
    return std::make_unique<SndfileDecoder>();
}

} // namespace tappix

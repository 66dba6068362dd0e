#pragma once

#include "audio/audio_device_manager.h"
#include "audio/audio_output.h"
#include "audio/mixer.h"
#include "audio/sample_player.h"
#include "core/sample_buffer.h"
#include "core/sample_decoder.h"
#include "core/serial_queue.h"

#include <QString>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tappix {

/// Holds every decoded sample and plays them through the mixer on the output.
/// Decides nothing about what to play: the sound engine names the kit, the sample,
/// the rate, the pan and the gain.
///
/// All buffer work runs on the serial queue "tappix-audio", in the order it was asked
/// for: a play asked for after a load hears the loaded samples, and never sees a
/// half-replaced map; callers never wait for decoding.
/// Replaced samples are freed on that queue only once the mixer no longer reads them.
class AudioPlayer final : public SamplePlayer {
public:
    /// Builds the mixer at `masterVolume` and starts the output. Main thread. The output
    /// follows devices itself; `devices` is no longer consulted (callers still pass it).
    AudioPlayer(std::unique_ptr<AudioOutput> output, std::unique_ptr<SampleDecoder> decoder,
                AudioDeviceManager& devices, float masterVolume);

    /// Stops the output, then frees everything. Main thread.
    ~AudioPlayer() override;

    AudioPlayer(const AudioPlayer&) = delete;
    AudioPlayer& operator=(const AudioPlayer&) = delete;

    /// Replaces every keyboard sample with those of `sets`; each distinct file is
    /// decoded once. Asynchronous: later plays wait for it. Main or key queue.
    void loadSampleSets(std::vector<SampleSet> sets) override;

    /// Replaces the mouse samples. Asynchronous: later plays wait for it. Main or key queue.
    void loadMouseKit(const QString& directory, std::vector<std::string> files) override;

    /// Plays `name` of kit `packId`; unknown names play nothing and take no voice.
    /// Asynchronous. Any thread.
    void play(std::string packId, std::string name, float rate, float pan, float gain) override;

    /// Plays a mouse sample; same rules. Asynchronous. Any thread.
    void playMouse(std::string name, float rate, float pan, float gain) override;

    /// Plays a buffer made elsewhere (bell, synthesised clicks, designed switches).
    /// Asynchronous. Any thread.
    void playBuffer(SampleRef buffer, float rate, float pan, float gain) override;

    /// Plays a buffer centred at full gain. Asynchronous. Any thread.
    void preview(SampleRef buffer, float rate) { playBuffer(std::move(buffer), rate, 0.0f, 1.0f); }

    /// The user's volume. Any thread.
    void setMasterVolume(float volume) { mixer_.setMasterVolume(volume); }
    /// Ducking while asleep. Any thread.
    void setDuck(bool active, float volume) { mixer_.setDuck(active, volume); }
    /// Tone brightness 0 … 1. Any thread.
    void setToneBrightness(float brightness) { mixer_.setToneBrightness(brightness); }
    /// The room reverb. Any thread.
    void setRoom(bool on) { mixer_.setRoom(on); }

    /// Plays on the device with this uid; none plays on the system default. A device
    /// not present now plays on the default until it appears, then the sound moves to
    /// it. Asynchronous; never queries devices or waits on the server. Any thread.
    void setOutputDevice(std::optional<std::string> uid);

    /// Blocks until every request made so far has reached the mixer. Not from the queue.
    void drain() { queue_.drain(); }

    /// Whether a kit has a decoded sample of that name (tests, diagnostics). Not from the queue.
    bool hasSample(std::string_view packId, std::string_view name);

    /// The output (for diagnostics: latency, state). Any thread.
    const AudioOutput& output() const { return *output_; }

    /// The mixer (levels and meters). Any thread.
    Mixer& mixer() { return mixer_; }

private:
    using SampleMap = std::map<std::string, SampleRef, std::less<>>;

    SampleMap decodeAll(const QString& directory, const std::vector<std::string>& files);
    void submit(const SampleRef& buffer, float rate, float pan, float gain);
    void retire(SampleMap& map);
    void sweep();
    void runSync(std::function<void()> task);

    Mixer mixer_;
    std::unique_ptr<AudioOutput> output_;
    std::unique_ptr<SampleDecoder> decoder_;

    // Queue-only state.
    std::map<std::string, SampleMap, std::less<>> buffers_;
    SampleMap mouseBuffers_;
    std::uint64_t sequence_ = 0;
    std::vector<std::pair<std::uint64_t, SampleRef>> retired_;

    SerialQueue queue_{QStringLiteral("tappix-audio")};
};

} // namespace tappix

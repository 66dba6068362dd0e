#pragma once

#include "audio/audio_device_manager.h"
#include "audio/audio_output.h"
#include "audio/mixer.h"
#include "audio/sample_player.h"
#include "core/clock.h"
#include "core/sample_buffer.h"
#include "core/sample_decoder.h"
#include "core/serial_queue.h"

#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
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
/// Plays run on the serial queue "tappix-audio" (on the asking thread itself while the
/// queue is idle, which saves a wake-up of its thread per sound), which never decodes: kits are
/// decoded on "tappix-decode" and their maps swapped in whole on "tappix-audio", so a play never
/// sees a half-replaced map and keys pressed during a decode play the samples already
/// in. Decoded kits are kept by kit and file identity (path, size, modification time):
/// a load decodes only files it has not decoded as they are now, and kits no longer in
/// use stay kept, least recently used let go first, up to a memory budget.
///
/// A sample is held only while a kit in use or kept lists it, or while the mixer may
/// still read it; so memory stays flat while the output is away, when nothing is queued
/// for it (a play then is dropped, as it could not sound on time). At most
/// `kQueueCapacity` plays wait on the queue. Every sound dropped is counted.
class AudioPlayer final : public SamplePlayer {
public:
    /// Plays that may wait on the audio queue; beyond this they are dropped.
    static constexpr std::size_t kQueueCapacity = 256;
    /// Decoded kits no longer in use are kept up to this many bytes (about two kits).
    static constexpr std::size_t kKeptKitBytes = std::size_t{32} << 20;

    /// Builds the mixer at `masterVolume` and starts the output. Sounds are timed on
    /// `clock` (the system's when null; it must outlive the player); kits not in use are
    /// kept up to `keptKitBytes`. Main thread. The output follows devices itself;
    /// `devices` is no longer consulted (callers still pass it).
    AudioPlayer(std::unique_ptr<AudioOutput> output, std::unique_ptr<SampleDecoder> decoder,
                AudioDeviceManager& devices, float masterVolume, const Clock* clock = nullptr,
                std::size_t keptKitBytes = kKeptKitBytes);

    /// Stops the output, then frees everything. Main thread.
    ~AudioPlayer() override;

    AudioPlayer(const AudioPlayer&) = delete;
    AudioPlayer& operator=(const AudioPlayer&) = delete;

    /// Replaces every keyboard sample with those of `sets`, decoding only what is new;
    /// each distinct file is decoded once. Main or key queue.
    void loadSampleSets(std::vector<SampleSet> sets, std::function<void()> loaded = {}) override;

    /// Replaces the mouse samples the same way. Main or key queue.
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

    /// Runs `task` on the audio queue before any play asked for after it: where the
    /// platform gives the queue the key path's priority. Main thread.
    void runOnQueue(std::function<void()> task) { queue_.post(std::move(task)); }

    /// Blocks until every load and play asked for so far has reached the mixer. Not
    /// from the player's queues.
    void drain();

    /// Whether a kit has a decoded sample of that name, once the loads asked for so far
    /// are in (tests, diagnostics). Not from the player's queues.
    bool hasSample(std::string_view packId, std::string_view name);

    /// Bytes of decoded samples the player keeps alive now: kits in use and kept, and
    /// sounds the mixer may still read (tests, diagnostics). Not from the player's queues.
    std::size_t sampleBytes();

    /// Sounds dropped since the start rather than played late: asked for while the
    /// output was away or a queue was full, or reaching the mixer too late. Any thread.
    std::uint64_t droppedSounds() const;

    /// The output (for diagnostics: latency, state). Any thread.
    const AudioOutput& output() const { return *output_; }

    /// The mixer (levels and meters). Any thread.
    Mixer& mixer() { return mixer_; }

private:
    using SampleMap = std::map<std::string, SampleRef, std::less<>>;
    using KitMaps = std::map<std::string, SampleMap, std::less<>>;

    /// One decoded file as it was on disk when decoded (no buffer: it did not decode).
    struct KeptSample {
        std::uintmax_t size = 0;
        std::int64_t modified = 0;
        SampleRef buffer;
    };
    /// A kit's decoded files, by name.
    struct KeptKit {
        std::string id;
        QString directory;
        std::map<std::string, KeptSample, std::less<>> samples;
        std::size_t bytes = 0;
    };
    using KitKey = std::pair<std::string, QString>;

    SampleMap keep(const std::string& id, const QString& directory,
                   const std::vector<std::string>& files);
    void letGoOfUnused();
    void post(std::function<void()> task);
    void submit(const SampleRef& buffer, float rate, float pan, float gain,
                Clock::Duration askedAt);
    void sweep();
    void reportDrops();
    void runSync(SerialQueue& queue, const std::function<void()>& task);

    const Clock& clock_;
    Mixer mixer_;
    std::unique_ptr<AudioOutput> output_;
    std::unique_ptr<SampleDecoder> decoder_;
    const std::size_t keptKitBytes_;

    // Audio-queue state.
    KitMaps buffers_;
    // The kits the last swap replaced: a key asked for just before the swap names one of
    // them (the engine learns of the new kits only once they are in) and plays it.
    KitMaps replacedBuffers_;
    SampleMap mouseBuffers_;
    std::uint64_t sequence_ = 0;
    // Every sample the mixer may still read, with the last sequence number that plays it.
    std::vector<std::pair<SampleRef, std::uint64_t>> inFlight_;
    std::atomic<std::uint64_t> awayDrops_{0};
    std::atomic<std::uint64_t> fullDrops_{0};
    std::uint64_t reportedDrops_ = 0;
    std::optional<Clock::Duration> lastDropReport_;

    // Decode-queue state: decoded kits, most recently used first, and the kits the last
    // two keyboard and mouse loads used (a kit replaced is still played until the swap).
    std::list<KeptKit> kept_;
    std::vector<KitKey> inUse_, usedBefore_, mouseInUse_, mouseUsedBefore_;

    // The queues go first, the decoder's before the audio queue its tasks hand maps to.
    SerialQueue queue_{QStringLiteral("tappix-audio"), QThread::HighPriority, kQueueCapacity};
    SerialQueue decodeQueue_{QStringLiteral("tappix-decode"), QThread::LowPriority};
};

} // namespace tappix

#include "audio/audio_player.h"

#include "core/log.h"
#include "core/sample_files.h"

#include <QFile>
#include <algorithm>
#include <filesystem>
#include <future>
#include <set>

namespace tappix {
namespace {

const Clock& systemClock() {
    static const SteadyClock clock;
    return clock;
}

/// A file's size and modification time, or none when it cannot be read.
std::optional<std::pair<std::uintmax_t, std::int64_t>> identity(const QString& path) {
    std::error_code error;
    const std::filesystem::path file(QFile::encodeName(path).toStdString());
    const std::uintmax_t size = std::filesystem::file_size(file, error);
    if (error)
        return std::nullopt;
    const auto modified = std::filesystem::last_write_time(file, error);
    if (error)
        return std::nullopt;
    return std::pair{size, static_cast<std::int64_t>(modified.time_since_epoch().count())};
}

// How often a line about dropped sounds may be written.
constexpr std::chrono::seconds kDropReportInterval{1};

} // namespace

AudioPlayer::AudioPlayer(std::unique_ptr<AudioOutput> output,
                         std::unique_ptr<SampleDecoder> decoder, AudioDeviceManager& /*devices*/,
                         float masterVolume, const Clock* clock, std::size_t keptKitBytes)
    : clock_(clock ? *clock : systemClock()), mixer_(clock_), output_(std::move(output)),
      decoder_(std::move(decoder)), keptKitBytes_(keptKitBytes) {
    mixer_.setMasterVolume(masterVolume);
    if (!output_->start(mixer_))
        qCWarning(lcAudio,
                  "audio engine failed to start: no sound server yet; retrying in the background");
}

AudioPlayer::~AudioPlayer() {
    // Stop rendering first: after this no one reads the buffers freed below.
    output_->stop();
}

void AudioPlayer::runSync(SerialQueue& queue, const std::function<void()>& task) {
    std::promise<void> done;
    queue.post([&] {
        task();
        done.set_value();
    });
    done.get_future().wait();
}

void AudioPlayer::drain() {
    // A load's decoding hands its maps to the audio queue, and their swap may ask for
    // plays that waited for them (a preview of the new kit): follow the chain.
    decodeQueue_.drain();
    queue_.drain();
    queue_.drain();
}

AudioPlayer::SampleMap AudioPlayer::keep(const std::string& id, const QString& directory,
                                         const std::vector<std::string>& files) {
    // Decode queue. The kit's kept files, moved to the front: most recently used.
    auto kit = std::find_if(kept_.begin(), kept_.end(), [&](const KeptKit& k) {
        return k.id == id && k.directory == directory;
    });
    if (kit == kept_.end())
        kit = kept_.insert(kept_.begin(), KeptKit{id, directory, {}, 0});
    else
        kept_.splice(kept_.begin(), kept_, kit);

    std::map<std::string, KeptSample, std::less<>> samples;
    SampleMap map;
    for (const std::string& name : std::set<std::string>(files.begin(), files.end())) {
        std::string error = sampleFileProblem(directory, name);
        const QString path = directory + QLatin1Char('/') + QString::fromStdString(name);
        const auto onDisk = error.empty() ? identity(path) : std::nullopt;
        if (!onDisk) {
            qCWarning(lcAudio, "failed to load %s: %s", name.c_str(),
                      error.empty() ? "cannot read the file" : error.c_str());
            continue;
        }
        KeptSample sample;
        if (auto was = kit->samples.find(name); was != kit->samples.end() &&
                                                was->second.size == onDisk->first &&
                                                was->second.modified == onDisk->second) {
            sample = was->second; // unchanged since it was decoded (or failed to)
        } else {
            sample.size = onDisk->first;
            sample.modified = onDisk->second;
            std::optional<SampleBuffer> buffer = decoder_->decode(path, error);
            if (!buffer)
                qCWarning(lcAudio, "failed to load %s: %s", name.c_str(), error.c_str());
            else if (buffer->frames() == 0 || buffer->frames() > UINT32_MAX)
                qCWarning(lcAudio, "could not convert %s to engine format", name.c_str());
            else
                sample.buffer = std::make_shared<const SampleBuffer>(std::move(*buffer));
        }
        if (sample.buffer)
            map.emplace(name, sample.buffer);
        samples.emplace(name, std::move(sample));
    }
    kit->samples = std::move(samples);
    kit->bytes = 0;
    for (const auto& [name, sample] : kit->samples)
        kit->bytes += sample.buffer ? sample.buffer->samples.size() * sizeof(float) : 0;
    return map;
}

void AudioPlayer::letGoOfUnused() {
    // Decode queue. Kits the last two loads used stay: the older of them is still played
    // until its swap, and letting go of it here would free it there, on the audio queue.
    auto used = [this](const KeptKit& kit) {
        const KitKey key{kit.id, kit.directory};
        for (const auto* list : {&inUse_, &usedBefore_, &mouseInUse_, &mouseUsedBefore_})
            if (std::find(list->begin(), list->end(), key) != list->end())
                return true;
        return false;
    };
    std::size_t spare = 0;
    for (auto kit = kept_.begin(); kit != kept_.end();) {
        if (used(*kit)) {
            ++kit;
        } else if (spare + kit->bytes > keptKitBytes_) {
            qCDebug(lcAudio, "letting go of the decoded kit %s", kit->id.c_str());
            kit = kept_.erase(kit);
        } else {
            spare += kit->bytes;
            ++kit;
        }
    }
}

void AudioPlayer::loadSampleSets(std::vector<SampleSet> sets, std::function<void()> loaded) {
    // Decoding runs on its own queue, never on the one that plays keys: keys pressed
    // meanwhile play the samples already in, and the new ones are swapped in whole.
    decodeQueue_.post([this, sets = std::move(sets), loaded = std::move(loaded)]() mutable {
        auto maps = std::make_shared<KitMaps>();
        std::vector<KitKey> keys;
        for (const SampleSet& set : sets) {
            // A later set with the same id replaces an earlier one.
            (*maps)[set.id] = keep(set.id, set.directory, set.files);
            keys.emplace_back(set.id, set.directory);
        }
        usedBefore_ = std::exchange(inUse_, std::move(keys));
        letGoOfUnused();
        std::string ids;
        for (const auto& [id, samples] : *maps)
            ids += (ids.empty() ? "" : ", ") + id + " (" + std::to_string(samples.size()) + ")";
        queue_.post([this, maps, loaded = std::move(loaded)] {
            replacedBuffers_ = std::exchange(buffers_, std::move(*maps));
            if (loaded)
                loaded();
            sweep();
        });
        // Said here, off the queue that plays keys; a key asked for after this line plays
        // after the swap, which is queued ahead of it.
        qCInfo(lcAudio, "sounds ready: %s", ids.empty() ? "none" : ids.c_str());
    });
}

void AudioPlayer::loadMouseKit(const QString& directory, std::vector<std::string> files) {
    decodeQueue_.post([this, directory, files = std::move(files)] {
        auto map = std::make_shared<SampleMap>(keep({}, directory, files));
        mouseUsedBefore_ = std::exchange(mouseInUse_, {KitKey{{}, directory}});
        letGoOfUnused();
        queue_.post([this, map] {
            mouseBuffers_ = std::move(*map);
            sweep();
        });
    });
}

void AudioPlayer::post(std::function<void()> task) {
    // At once on the asking thread (the key's) while the queue is idle: a play then costs
    // no wake-up of the queue's thread. Drops are counted with the others; the next play
    // that gets through reports them.
    queue_.tryRunOrPost(std::move(task));
}

void AudioPlayer::play(std::string packId, std::string name, float rate, float pan, float gain) {
    const Clock::Duration askedAt = clock_.now();
    post([this, packId = std::move(packId), name = std::move(name), rate, pan, gain, askedAt] {
        auto kit = buffers_.find(packId);
        if (kit == buffers_.end()) {
            kit = replacedBuffers_.find(packId);
            if (kit == replacedBuffers_.end())
                return;
        }
        auto sample = kit->second.find(name);
        if (sample == kit->second.end())
            return;
        submit(sample->second, rate, pan, gain, askedAt);
    });
}

void AudioPlayer::playMouse(std::string name, float rate, float pan, float gain) {
    const Clock::Duration askedAt = clock_.now();
    post([this, name = std::move(name), rate, pan, gain, askedAt] {
        if (auto sample = mouseBuffers_.find(name); sample != mouseBuffers_.end())
            submit(sample->second, rate, pan, gain, askedAt);
    });
}

void AudioPlayer::playBuffer(SampleRef buffer, float rate, float pan, float gain) {
    if (!buffer || buffer->frames() == 0 || buffer->frames() > UINT32_MAX)
        return;
    const Clock::Duration askedAt = clock_.now();
    post([this, buffer = std::move(buffer), rate, pan, gain, askedAt] {
        // The caller may drop its copy at any time: the player holds it while it sounds.
        submit(buffer, rate, pan, gain, askedAt);
    });
}

void AudioPlayer::submit(const SampleRef& buffer, float rate, float pan, float gain,
                         Clock::Duration askedAt) {
    sweep();
    reportDrops();
    // Nothing is queued for an output that is away: it could only sound late, and it
    // would hold its samples until the output is back.
    if (!output_->isPlaying()) {
        awayDrops_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    Mixer::PlayCommand command;
    command.data = buffer->samples.data();
    command.frames = static_cast<std::uint32_t>(buffer->frames());
    command.rate = rate;
    command.pan = pan;
    command.gain = gain;
    command.sequence = ++sequence_;
    command.askedAt = askedAt;
    if (!mixer_.enqueue(command)) {
        --sequence_; // a full queue (256 sounds not yet rendered) drops the sound
        fullDrops_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    auto held = std::find_if(inFlight_.begin(), inFlight_.end(),
                             [&](const auto& entry) { return entry.first == buffer; });
    if (held == inFlight_.end())
        inFlight_.emplace_back(buffer, command.sequence);
    else
        held->second = command.sequence;
    output_->wake();
}

void AudioPlayer::sweep() {
    // Samples last played by a command below the mixer's safe sequence are unread.
    const std::uint64_t safe = mixer_.safeSequence();
    std::erase_if(inFlight_, [safe](const auto& entry) { return entry.second < safe; });
}

std::uint64_t AudioPlayer::droppedSounds() const {
    return mixer_.lateSounds() + awayDrops_.load(std::memory_order_relaxed) +
           fullDrops_.load(std::memory_order_relaxed) + queue_.dropped();
}

void AudioPlayer::reportDrops() {
    const std::uint64_t dropped = droppedSounds();
    if (dropped == reportedDrops_)
        return;
    const Clock::Duration now = clock_.now();
    if (lastDropReport_ && now - *lastDropReport_ < kDropReportInterval)
        return;
    qCInfo(lcAudio,
           "dropped %llu sounds that could not play on time (%llu since start; the output was "
           "away or stalled, or sounds came faster than they could be played)",
           static_cast<unsigned long long>(dropped - reportedDrops_),
           static_cast<unsigned long long>(dropped));
    reportedDrops_ = dropped;
    lastDropReport_ = now;
}

void AudioPlayer::setOutputDevice(std::optional<std::string> uid) {
    // Straight to the output, which falls back and follows the device on its own
    // thread: a device query here would hold up the sounds queued behind it.
    output_->setDevice(uid);
}

bool AudioPlayer::hasSample(std::string_view packId, std::string_view name) {
    decodeQueue_.drain();
    bool found = false;
    runSync(queue_, [&] {
        auto kit = buffers_.find(packId);
        found = kit != buffers_.end() && kit->second.contains(name);
    });
    return found;
}

std::size_t AudioPlayer::sampleBytes() {
    std::set<const SampleBuffer*> alive;
    runSync(decodeQueue_, [&] {
        for (const KeptKit& kit : kept_)
            for (const auto& [name, sample] : kit.samples)
                alive.insert(sample.buffer.get());
    });
    runSync(queue_, [&] {
        sweep();
        for (const auto* maps : {&buffers_, &replacedBuffers_})
            for (const auto& [id, map] : *maps)
                for (const auto& [name, buffer] : map)
                    alive.insert(buffer.get());
        for (const auto& [name, buffer] : mouseBuffers_)
            alive.insert(buffer.get());
        for (const auto& [buffer, sequence] : inFlight_)
            alive.insert(buffer.get());
    });
    alive.erase(nullptr);
    std::size_t bytes = 0;
    for (const SampleBuffer* buffer : alive)
        bytes += buffer->samples.size() * sizeof(float);
    return bytes;
}

} // namespace tappix

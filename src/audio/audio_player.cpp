#include "audio/audio_player.h"

#include "core/log.h"
#include "core/sample_files.h"

#include <set>

namespace tappix {

AudioPlayer::AudioPlayer(std::unique_ptr<AudioOutput> output,
                         std::unique_ptr<SampleDecoder> decoder, AudioDeviceManager& /*devices*/,
                         float masterVolume)
    : output_(std::move(output)), decoder_(std::move(decoder)) {
    mixer_.setMasterVolume(masterVolume);
    if (!output_->start(mixer_))
        qCWarning(lcAudio,
                  "audio engine failed to start: no sound server yet; retrying in the background");
}

AudioPlayer::~AudioPlayer() {
    // Stop rendering first: after this no one reads the buffers freed below.
    output_->stop();
}

void AudioPlayer::runSync(std::function<void()> task) {
    queue_.post(std::move(task));
    queue_.drain();
}

AudioPlayer::SampleMap AudioPlayer::decodeAll(const QString& directory,
                                              const std::vector<std::string>& files) {
    SampleMap map;
    for (const std::string& name : std::set<std::string>(files.begin(), files.end())) {
        std::string error = sampleFileProblem(directory, name);
        std::optional<SampleBuffer> buffer;
        if (error.empty())
            buffer = decoder_->decode(directory + QLatin1Char('/') + QString::fromStdString(name),
                                      error);
        if (!buffer) {
            qCWarning(lcAudio, "failed to load %s: %s", name.c_str(), error.c_str());
            continue;
        }
        if (buffer->frames() == 0 || buffer->frames() > UINT32_MAX) {
            qCWarning(lcAudio, "could not convert %s to engine format", name.c_str());
            continue;
        }
        map.emplace(name, std::make_shared<const SampleBuffer>(std::move(*buffer)));
    }
    return map;
}

void AudioPlayer::loadSampleSets(std::vector<SampleSet> sets) {
    // Decoding happens on the audio queue, never on the caller's thread: plays asked for
    // after this wait behind it in the queue, so they hear the new kit.
    queue_.post([this, sets = std::move(sets)] {
        for (auto& [id, map] : buffers_)
            retire(map);
        buffers_.clear();
        for (const SampleSet& set : sets) {
            SampleMap map = decodeAll(set.directory, set.files);
            if (auto existing = buffers_.find(set.id); existing != buffers_.end())
                retire(existing->second);
            buffers_[set.id] = std::move(map);
        }
        sweep();
    });
}

void AudioPlayer::loadMouseKit(const QString& directory, std::vector<std::string> files) {
    queue_.post([this, directory, files = std::move(files)] {
        retire(mouseBuffers_);
        mouseBuffers_ = decodeAll(directory, files);
        sweep();
    });
}

void AudioPlayer::play(std::string packId, std::string name, float rate, float pan, float gain) {
    queue_.post([this, packId = std::move(packId), name = std::move(name), rate, pan, gain] {
        auto kit = buffers_.find(packId);
        if (kit == buffers_.end())
            return;
        auto sample = kit->second.find(name);
        if (sample == kit->second.end())
            return;
        submit(sample->second, rate, pan, gain);
    });
}

void AudioPlayer::playMouse(std::string name, float rate, float pan, float gain) {
    queue_.post([this, name = std::move(name), rate, pan, gain] {
        if (auto sample = mouseBuffers_.find(name); sample != mouseBuffers_.end())
            submit(sample->second, rate, pan, gain);
    });
}

void AudioPlayer::playBuffer(SampleRef buffer, float rate, float pan, float gain) {
    if (!buffer || buffer->frames() == 0 || buffer->frames() > UINT32_MAX)
        return;
    queue_.post([this, buffer = std::move(buffer), rate, pan, gain] {
        submit(buffer, rate, pan, gain);
        // The caller may drop its copy at any time: keep it until the mixer is done.
        retired_.emplace_back(sequence_, buffer);
    });
}

void AudioPlayer::submit(const SampleRef& buffer, float rate, float pan, float gain) {
    sweep();
    Mixer::PlayCommand command;
    command.data = buffer->samples.data();
    command.frames = static_cast<std::uint32_t>(buffer->frames());
    command.rate = rate;
    command.pan = pan;
    command.gain = gain;
    command.sequence = ++sequence_;
    if (!mixer_.enqueue(command)) {
        --sequence_; // a full queue (256 sounds not yet rendered) drops the sound
        return;
    }
    output_->wake();
}

void AudioPlayer::retire(SampleMap& map) {
    for (auto& [name, buffer] : map)
        retired_.emplace_back(sequence_, std::move(buffer));
    map.clear();
}

void AudioPlayer::sweep() {
    // Samples last used by a command below the mixer's safe sequence are unread.
    const std::uint64_t safe = mixer_.safeSequence();
    std::erase_if(retired_, [safe](const auto& entry) { return entry.first < safe; });
}

void AudioPlayer::setOutputDevice(std::optional<std::string> uid) {
    // Straight to the output, which falls back and follows the device on its own
    // thread: a device query here would hold up the sounds queued behind it.
    output_->setDevice(uid);
}

bool AudioPlayer::hasSample(std::string_view packId, std::string_view name) {
    bool found = false;
    runSync([&] {
        auto kit = buffers_.find(packId);
        found = kit != buffers_.end() && kit->second.contains(name);
    });
    return found;
}

} // namespace tappix

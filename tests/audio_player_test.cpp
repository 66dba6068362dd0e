#include "audio/audio_player.h"

#include "platform/sndfile/sndfile_decoder.h"

#include "support/fake_time.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <sys/stat.h>
#include <thread>
#include <utility>

using namespace tappix;

namespace {

/// A gate a thread waits at until the test opens it.
struct Gate {
    std::atomic<bool> open{true}, waiting{false};
    void pass() {
        waiting = true;
        while (!open)
            std::this_thread::yield();
        waiting = false;
    }
};

/// The platform boundary, driven by hand: the test renders the mixer itself, and says
/// when the output goes away (its stream dropped, as when the server dies).
struct ManualOutput final : AudioOutput {
    bool start(Mixer& mixer) override {
        mixer_ = &mixer;
        return true;
    }
    void stop() override {}
    void setDevice(const std::optional<std::string>&) override {}
    void wake() override { wakeGate.pass(); }
    bool isPlaying() const override { return !away; }
    double latencySeconds() const override { return 0; }
    std::vector<float> render(std::size_t frames) {
        std::vector<float> out(frames * 2);
        mixer_->render(out.data(), frames);
        return out;
    }
    void goAway() {
        away = true;
        mixer_->stopAll();
    }
    std::atomic<bool> away{false};
    Gate wakeGate;
    Mixer* mixer_ = nullptr;
};

/// Counts decodes so tests can see a file decoded once; each waits at `gate`.
struct CountingDecoder final : SampleDecoder {
    std::optional<SampleBuffer> decode(const QString& path, std::string& error) override {
        gate.pass();
        ++count;
        return real.decode(path, error);
    }
    std::atomic<int> count = 0;
    Gate gate;
    SndfileDecoder real;
};

struct Fixture {
    QTemporaryDir dir;
    NullAudioDeviceManager devices;
    test::FakeTime time;
    ManualOutput* output = new ManualOutput;
    CountingDecoder* decoder = new CountingDecoder;
    AudioPlayer player;

    explicit Fixture(std::size_t keptKitBytes = AudioPlayer::kKeptKitBytes)
        : player(std::unique_ptr<AudioOutput>(output), std::unique_ptr<SampleDecoder>(decoder),
                 devices, 1.0f, &time, keptKitBytes) {
        std::string error;
        writeWav(std::vector<float>(480, 0.5f), dir.filePath("click.wav").toStdString(), error);
        writeWav(std::vector<float>(480, 0.25f), dir.filePath("clack.wav").toStdString(), error);
    }
};

} // namespace

TEST(AudioPlayer, RefusesNamesThatEscapeOrAreNotFiles) {
    Fixture f;
    QDir(f.dir.path()).mkdir("sub");
    ASSERT_EQ(::mkfifo(f.dir.filePath("pipe.wav").toLocal8Bit().constData(), 0600), 0);
    QFile::copy(f.dir.filePath("click.wav"), f.dir.filePath("sub/inner.wav"));
    f.player.loadSampleSets({{"k",
                              f.dir.filePath("sub"),
                              {"../click.wav", f.dir.filePath("click.wav").toStdString(),
                               "../pipe.wav", "inner.wav", "missing.wav", ""}}});
    f.player.drain();
    EXPECT_EQ(f.decoder->count.load(), 1); // only inner.wav was ever opened
    EXPECT_TRUE(f.player.hasSample("k", "inner.wav"));
    EXPECT_FALSE(f.player.hasSample("k", "../click.wav"));

    ASSERT_EQ(::mkfifo(f.dir.filePath("sub/fifo.wav").toLocal8Bit().constData(), 0600), 0);
    f.player.loadSampleSets({{"k", f.dir.filePath("sub"), {"fifo.wav"}}}); // must not hang
    EXPECT_FALSE(f.player.hasSample("k", "fifo.wav"));
}

TEST(AudioPlayer, PlaysKnownSamplesAndIgnoresUnknownOnes) {
    Fixture f;
    f.player.loadSampleSets({{"a", f.dir.path(), {"click.wav"}}});
    f.player.play("a", "nope.wav", 1, -1, 1);
    f.player.play("zz", "click.wav", 1, -1, 1);
    f.player.drain();
    EXPECT_EQ(f.output->render(64)[20], 0.0f);
    EXPECT_EQ(f.player.mixer().activeVoices(), 0); // no voice taken

    f.player.play("a", "click.wav", 1, -1, 1);
    f.player.drain();
    EXPECT_NEAR(f.output->render(64)[20], 0.5f, 1e-3f);

    f.output->render(480); // the click is over

    // A buffer the caller let go of lives while the render reads it, and no longer.
    auto buffer = std::make_shared<const SampleBuffer>(SampleBuffer{std::vector<float>(480, 0.5f)});
    const std::weak_ptr<const SampleBuffer> held = buffer;
    f.player.playBuffer(std::exchange(buffer, nullptr), 1, 1, 1);
    f.player.drain();
    EXPECT_NEAR(f.output->render(64)[21], 0.5f, 1e-3f);
    f.player.sampleBytes(); // lets go of what the render has moved past
    EXPECT_FALSE(held.expired()) << "freed while the render still reads it";
    EXPECT_NEAR(f.output->render(64)[21], 0.5f, 1e-3f);
    f.output->render(480);
    f.player.sampleBytes();
    EXPECT_TRUE(held.expired()) << "kept after the render moved past it";
}

// Keys never wait for a kit's decoding: meanwhile they play the kit loaded before.
TEST(AudioPlayer, KeysPlayTheKitBeforeWhileANewOneDecodes) {
    Fixture f;
    f.player.loadSampleSets({{"a", f.dir.path(), {"click.wav"}}});
    f.player.drain();
    f.decoder->gate.open = false;
    std::atomic<bool> switched{false};
    f.player.loadSampleSets({{"b", f.dir.path(), {"clack.wav"}}}, [&] { switched = true; });
    while (!f.decoder->gate.waiting)
        std::this_thread::yield();
    f.player.play("a", "click.wav", 1, -1, 1);
    const auto loudest = [&] {
        const auto out = f.output->render(64);
        return *std::max_element(out.begin(), out.end());
    };
    float heard = 0;
    for (int i = 0; i < 2000 && heard == 0; ++i) {
        heard = loudest();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_NEAR(heard, 0.5f, 1e-3f) << "the key waited for the decoding";
    EXPECT_FALSE(switched);
    f.decoder->gate.open = true;
    f.player.drain();
    EXPECT_TRUE(switched);
    f.output->render(480);
    f.player.play("b", "clack.wav", 1, -1, 1);
    f.player.drain();
    EXPECT_NEAR(loudest(), 0.25f, 1e-3f);
}

// A load decodes only files new to the kit or changed on disk; kits no longer in use stay
// within the budget, the least recently used let go first.
TEST(AudioPlayer, LoadsDecodeOnlyWhatIsNew) {
    const std::size_t sample = 480 * sizeof(float);
    Fixture f(3 * sample); // one kit of one sample kept beside those in use, not two
    const QString d = f.dir.path();
    struct Step {
        const char* what;
        std::vector<SamplePlayer::SampleSet> sets;
        int decodes;
        const char* gone = "";
    };
    const Step steps[] = {
        {"a kit", {{"a", d, {"click.wav", "click.wav", "clack.wav"}}}, 2},
        {"the same kit again", {{"a", d, {"click.wav", "clack.wav"}}}, 0},
        {"a second kit beside it",
         {{"a", d, {"click.wav", "clack.wav"}}, {"b", d, {"clack.wav"}}},
         1},
        {"a file changed on disk",
         {{"a", d, {"click.wav", "clack.wav"}}, {"b", d, {"clack.wav"}}},
         1},
        {"another kit alone", {{"c", d, {"click.wav"}}}, 1, "a"},
        {"it again, letting go of the least recent", {{"c", d, {"click.wav"}}}, 0},
        {"a kit kept", {{"b", d, {"clack.wav"}}}, 0},
        {"a kit let go", {{"a", d, {"click.wav", "clack.wav"}}}, 2},
    };
    std::string error;
    for (const Step& step : steps) {
        if (std::string_view(step.what) == "a file changed on disk")
            writeWav(std::vector<float>(960, 0.5f), (d + "/click.wav").toStdString(), error);
        const int before = f.decoder->count.load();
        f.player.loadSampleSets(step.sets);
        f.player.drain();
        EXPECT_EQ(f.decoder->count.load() - before, step.decodes) << step.what;
        for (const auto& set : step.sets)
            for (const auto& file : set.files)
                EXPECT_TRUE(f.player.hasSample(set.id, file)) << step.what;
        EXPECT_FALSE(f.player.hasSample(step.gone, "click.wav")) << step.what;
    }
}

// Beyond the queue's capacity, or while the output is away, plays are dropped and counted,
// and replaced samples and played buffers are let go at once.
TEST(AudioPlayer, MemoryStaysFlatAndPlaysAreDroppedWhenTheyCannotSound) {
    Fixture f(0); // no kit kept beyond those the last two loads used
    const std::size_t kit = 2 * 480 * sizeof(float);
    f.player.loadSampleSets({{"first", f.dir.path(), {"click.wav"}}});
    f.player.drain();
    f.output->wakeGate.open = false;
    // Queued, never rendered: the queue is stuck on it (a play run by the key's own thread
    // while the queue is idle).
    std::thread key([&] { f.player.play("first", "click.wav", 1, 0, 1); });
    while (!f.output->wakeGate.waiting)
        std::this_thread::yield();
    constexpr int kBurst = 1000;
    for (int i = 0; i < kBurst; ++i)
        f.player.play("first", "unknown.wav", 1, 0, 1);
    EXPECT_EQ(f.player.droppedSounds(), kBurst - AudioPlayer::kQueueCapacity);
    f.output->wakeGate.open = true;
    key.join();
    f.player.drain();
    const std::uint64_t dropped = f.player.droppedSounds();
    f.output->goAway();
    for (int round = 0; round < 20; ++round) {
        const std::string id = "kit" + std::to_string(round);
        f.player.loadSampleSets({{id, f.dir.path(), {"click.wav", "clack.wav"}}});
        f.player.drain();
        f.player.play(id, "click.wav", 1, 0, 1);
        f.player.playBuffer(
            std::make_shared<const SampleBuffer>(SampleBuffer{std::vector<float>(48000, 0.1f)}), 1,
            0, 1);
        f.player.drain();
        EXPECT_LE(f.player.sampleBytes(), 2 * kit) << "round " << round;
    }
    EXPECT_EQ(f.player.droppedSounds() - dropped, 1u + 2 * 20);
}

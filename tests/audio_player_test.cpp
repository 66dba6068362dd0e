#include "audio/audio_player.h"

#include "platform/sndfile/sndfile_decoder.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <sys/stat.h>

using namespace tappix;

namespace {

/// The platform boundary, driven by hand: the test renders the mixer itself.
class ManualOutput final : public AudioOutput {
public:
    bool start(Mixer& mixer) override {
        mixer_ = &mixer;
        return true;
    }
    void stop() override {}
    void setDevice(const std::optional<std::string>& name) override { device = name; }
    bool isPlaying() const override { return true; }
    double latencySeconds() const override { return 0; }
    std::vector<float> render(std::size_t frames) {
        std::vector<float> out(frames * 2);
        mixer_->render(out.data(), frames);
        return out;
    }
    std::optional<std::string> device;

private:
    Mixer* mixer_ = nullptr;
};

/// Counts decodes so tests can see a file decoded once.
class CountingDecoder final : public SampleDecoder {
public:
    std::optional<SampleBuffer> decode(const QString& path, std::string& error) override {
        ++count;
        return real.decode(path, error);
    }
    int count = 0;
    SndfileDecoder real;
};

class FakeDevices final : public AudioDeviceManager {
public:
    std::vector<Device> outputDevices() override { return {{7, "speakers", "Speakers"}}; }
    std::optional<std::uint32_t> deviceID(const std::string& uid) override {
        ++queries;
        return uid == "speakers" ? std::optional<std::uint32_t>(7) : std::nullopt;
    }
    std::optional<Device> defaultOutput() override { return outputDevices().front(); }
    bool isDefaultOutputBuiltIn() override { return true; }
    bool isDefaultOutputBluetooth() override { return false; }
    bool isMicrophoneInUse() override { return false; }
    bool isCameraInUse() override { return false; }
    bool isServerReachable() override { return true; }
    std::string serverDescription() override { return "fake"; }
    int queries = 0;
};

struct Fixture {
    QTemporaryDir dir;
    FakeDevices devices;
    ManualOutput* output = new ManualOutput;
    CountingDecoder* decoder = new CountingDecoder;
    AudioPlayer player{std::unique_ptr<AudioOutput>(output),
                       std::unique_ptr<SampleDecoder>(decoder), devices, 1.0f};

    Fixture() {
        std::string error;
        writeWav(std::vector<float>(480, 0.5f), dir.filePath("click.wav").toStdString(), error);
        writeWav(std::vector<float>(480, 0.25f), dir.filePath("clack.wav").toStdString(), error);
    }
};

} // namespace

TEST(AudioPlayer, LoadsReplaceTheWholeMapAndDecodeEachFileOnce) {
    Fixture f;
    f.player.loadSampleSets({{"a", f.dir.path(), {"click.wav", "click.wav", "clack.wav"}},
                             {"b", f.dir.path(), {"clack.wav"}}});
    f.player.drain();
    EXPECT_EQ(f.decoder->count, 3);
    EXPECT_TRUE(f.player.hasSample("a", "click.wav"));
    EXPECT_TRUE(f.player.hasSample("b", "clack.wav"));
    f.player.loadSampleSets({{"b", f.dir.path(), {"clack.wav"}}});
    EXPECT_FALSE(f.player.hasSample("a", "click.wav"));
    EXPECT_TRUE(f.player.hasSample("b", "clack.wav"));
}

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
    EXPECT_EQ(f.decoder->count, 1); // only inner.wav was ever opened
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

    auto buffer = std::make_shared<const SampleBuffer>(SampleBuffer{std::vector<float>(480, 0.5f)});
    f.player.playBuffer(buffer, 1, 1, 1);
    buffer.reset(); // the player keeps it alive until the mixer is done
    f.player.drain();
    EXPECT_NEAR(f.output->render(64)[21], 0.5f, 1e-3f);
}

// The output follows the chosen device itself, absent or not: the player hands the
// name over as it is and never queries devices, which would stall the sounds queued
// behind the query.
TEST(AudioPlayer, TheChosenDeviceGoesToTheOutputWithoutAQuery) {
    Fixture f;
    f.player.setOutputDevice(std::string("speakers"));
    EXPECT_EQ(f.output->device, std::optional<std::string>("speakers"));
    f.player.setOutputDevice(std::string("not-plugged-in-yet"));
    EXPECT_EQ(f.output->device, std::optional<std::string>("not-plugged-in-yet"));
    f.player.setOutputDevice(std::nullopt);
    EXPECT_EQ(f.output->device, std::nullopt);
    EXPECT_EQ(f.devices.queries, 0);
}

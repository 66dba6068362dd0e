// Mixer, synthesiser and sample-loading costs.
// Run: build/bench/audio_bench

#include "audio/mixer.h"
#include "kits/synth_engine.h"
#include "platform/sndfile/sndfile_decoder.h"

#include <benchmark/benchmark.h>

#include <QProcess>
#include <QTemporaryDir>
#include <cmath>
#include <vector>

using namespace tappix;

namespace {

/// One second of 48 kHz stereo with all sixteen voices busy at odd rates, pans and
/// gains, the low-pass and the room on. Reports the CPU share of real time.
void MixerOneSecondSixteenVoices(benchmark::State& state) {
    const SteadyClock clock;
    Mixer mixer(clock);
    mixer.setMasterVolume(0.8f);
    mixer.setToneBrightness(0.5f);
    mixer.setRoom(true);
    std::vector<float> sample(48000 * 2);
    for (std::size_t i = 0; i < sample.size(); ++i)
        sample[i] = 0.5f * std::sin(0.05f * static_cast<float>(i));
    std::vector<float> out(2 * 48000);
    std::uint64_t sequence = 0;
    for (auto _ : state) {
        for (int v = 0; v < Mixer::kVoiceCount; ++v)
            mixer.enqueue({sample.data(), static_cast<std::uint32_t>(sample.size()),
                           0.9f + 0.013f * v, -0.9f + 0.12f * v, 0.3f + 0.05f * v, ++sequence,
                           clock.now()});
        // Render in 240-frame callbacks (5 ms), as a sound server asks for it.
        for (std::size_t done = 0; done < 48000; done += 240)
            mixer.render(out.data() + 2 * done, 240);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["voices"] = Mixer::kVoiceCount;
}
BENCHMARK(MixerOneSecondSixteenVoices)->Unit(benchmark::kMillisecond);

/// One second with nothing playing: what the idle stream costs.
void MixerOneSecondIdle(benchmark::State& state) {
    const SteadyClock clock;
    Mixer mixer(clock);
    std::vector<float> out(2 * 48000);
    for (auto _ : state) {
        for (std::size_t done = 0; done < 48000; done += 240)
            mixer.render(out.data() + 2 * done, 240);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(MixerOneSecondIdle)->Unit(benchmark::kMicrosecond);

void SynthOneKeystroke(benchmark::State& state) {
    const SynthParams params{420, 0.9f, 10, 8000, true};
    std::uint64_t seed = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(SynthEngine::render(params, ++seed, false));
}
BENCHMARK(SynthOneKeystroke)->Unit(benchmark::kMicrosecond);

/// A designed kit: five groups, four presses and three releases each, and the bell…
/// 35 renders in all.
void SynthWholeDesignedKit(benchmark::State& state) {
    const SynthParams params{420, 0.9f, 14, 8000, true};
    for (auto _ : state) {
        for (int i = 0; i < 35; ++i)
            benchmark::DoNotOptimize(
                SynthEngine::render(params, static_cast<std::uint64_t>(i), i % 7 >= 4));
    }
}
BENCHMARK(SynthWholeDesignedKit)->Unit(benchmark::kMillisecond);

/// Decoding and converting a 100-file kit: 44.1 kHz stereo 16-bit, 150 ms each.
void LoadHundredFileKit(benchmark::State& state) {
    QTemporaryDir dir;
    QProcess sox;
    sox.start("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", dir.filePath("0.wav"), "synth",
                      "0.15", "pinknoise"});
    sox.waitForFinished();
    for (int i = 1; i < 100; ++i)
        QFile::copy(dir.filePath("0.wav"), dir.filePath(QString::number(i) + ".wav"));
    SndfileDecoder decoder;
    for (auto _ : state) {
        for (int i = 0; i < 100; ++i) {
            std::string error;
            benchmark::DoNotOptimize(
                decoder.decode(dir.filePath(QString::number(i) + ".wav"), error));
        }
    }
}
BENCHMARK(LoadHundredFileKit)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();

// Prints what the switch designer costs: writing a whole designed kit (35 WAV files
// and its manifest) into a temporary directory, and drawing its waveform once, as the
// Create page does on every slider move. Median and slowest of several runs.
//
// Run: build/bench/designer_figures [runs]

#include "kits/switch_designer.h"
#include "platform/sndfile/sndfile_decoder.h"

#include <QFile>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

using namespace tappix;

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void print(const char* what, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    std::printf("%s: median %.2f ms, slowest %.2f ms over %zu runs\n", what,
                times[times.size() / 2], times.back(), times.size());
}

} // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    const SwitchDesigner designer(
        [](const std::vector<float>& samples, const QString& path, std::string& error) {
            return writeWav(samples, QFile::encodeName(path).toStdString(), error);
        });
    QTemporaryDir directory;
    std::vector<double> saves;
    std::vector<double> waveforms;
    // The longest sustain the slider allows renders the most samples.
    SynthParams design = SwitchDesigner::kDefaultParams;
    design.decayMs = SwitchDesigner::kDecayMsRange.max;
    for (int run = 0; run < runs; ++run) {
        Clock::time_point start = Clock::now();
        const auto result = designer.save(design, "Bench Switch", directory.path());
        saves.push_back(millisecondsSince(start));
        if (!result.ok()) {
            std::fprintf(stderr, "save failed: %s\n", result.error.c_str());
            return 1;
        }
        start = Clock::now();
        const auto peaks = SwitchDesigner::waveform(design, 200);
        waveforms.push_back(millisecondsSince(start));
        if (peaks.size() != 200)
            return 1;
    }
    print("save a designed kit, longest sustain (35 files + manifest)", saves);
    print("one waveform of 200 peaks, longest sustain", waveforms);
    return 0;
}

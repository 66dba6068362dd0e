// kit_features: how the keyboard kits in a directory sound, in numbers and pictures.
//
//   kit_features SOUNDPACKS_DIR [--png FILE] [--kit ID]...
//
// For every keyboard kit (or only those named), over the presses of the letter keys
// a-z (the kit's "alpha" sounds when it has no letters of its own), each measured from
// its onset (the first sample within 20 dB of the peak, less 1 ms):
//   flatness   spectral flatness of the first 40 ms in 200 Hz-12 kHz (0 for pure tones,
//              1 for white noise), median over presses
//   centroid   spectral centroid of the same spectrum, median
//   to -40 dB  time from the onset until the 2 ms RMS envelope last reaches 40 dB below
//              its peak, median
//   spread     spread of centroids across keys: standard deviation of the 26 letters'
//              median centroids over their mean
//   release    level of releases against presses (RMS of the first 40 ms), median of
//              the letters' differences; a minus sign means quieter
// With --png, a page of spectrograms: one row per kit, the same keys in every row.

#include "kits/soundpack_config.h"
#include "platform/sndfile/sndfile_decoder.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fftw3.h>
#include <map>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr double kRate = 48000;
constexpr int kFft = 2048;
constexpr std::size_t kWindow = 1920; // 40 ms
constexpr double kLowHz = 200, kHighHz = 12000;
constexpr std::size_t kBlock = 96; // 2 ms

using Samples = std::vector<float>;

struct Kit {
    tappix::SoundpackConfig config;
    QString sounds;
};

std::size_t onsetOf(const Samples& x) {
    float peak = 0;
    for (float v : x)
        peak = std::max(peak, std::fabs(v));
    std::size_t i = 0;
    while (i < x.size() && std::fabs(x[i]) < 0.1f * peak)
        ++i;
    return i > 48 ? i - 48 : 0;
}

/// Power spectrum of the 40 ms after `from`: flat for the first half, then a half-Hann
/// fall so the window's edge adds no spectrum of its own.
std::vector<double> powerSpectrum(const Samples& x, std::size_t from) {
    static float* in = fftwf_alloc_real(kFft);
    static fftwf_complex* out = fftwf_alloc_complex(kFft / 2 + 1);
    static fftwf_plan plan = fftwf_plan_dft_r2c_1d(kFft, in, out, FFTW_ESTIMATE);
    for (int i = 0; i < kFft; ++i) {
        const std::size_t n = static_cast<std::size_t>(i);
        double w = 0;
        if (n < kWindow / 2)
            w = 1;
        else if (n < kWindow)
            w = 0.5 + 0.5 * std::cos(M_PI * double(n - kWindow / 2) / double(kWindow / 2));
        in[i] = from + n < x.size() ? float(x[from + n] * w) : 0.0f;
    }
    fftwf_execute(plan);
    std::vector<double> power(kFft / 2 + 1);
    for (std::size_t k = 0; k < power.size(); ++k)
        power[k] = double(out[k][0]) * out[k][0] + double(out[k][1]) * out[k][1];
    return power;
}

struct Features {
    double flatness = 0, centroid = 0, decayMs = 0, rmsDb = -200;
};

Features measure(const Samples& x) {
    Features f;
    if (x.empty())
        return f;
    const std::size_t onset = onsetOf(x);
    const auto power = powerSpectrum(x, onset);
    double logSum = 0, sum = 0, weighted = 0;
    int bins = 0;
    for (std::size_t k = 0; k < power.size(); ++k) {
        const double hz = double(k) * kRate / kFft;
        if (hz < kLowHz || hz > kHighHz)
            continue;
        const double p = power[k] + 1e-20;
        logSum += std::log(p);
        sum += p;
        weighted += hz * p;
        ++bins;
    }
    f.flatness = std::exp(logSum / bins) / (sum / bins);
    f.centroid = weighted / sum;

    std::vector<double> blocks;
    for (std::size_t b = onset; b + kBlock <= x.size(); b += kBlock) {
        double e = 0;
        for (std::size_t i = b; i < b + kBlock; ++i)
            e += double(x[i]) * x[i];
        blocks.push_back(10 * std::log10(e / kBlock + 1e-30));
    }
    const double peak = blocks.empty() ? 0 : *std::max_element(blocks.begin(), blocks.end());
    std::size_t last = 0;
    for (std::size_t b = 0; b < blocks.size(); ++b) {
        if (blocks[b] >= peak - 40)
            last = b + 1;
    }
    f.decayMs = double(last * kBlock) / 48.0;
    double e = 0;
    for (std::size_t i = onset; i < std::min(x.size(), onset + kWindow); ++i)
        e += double(x[i]) * x[i];
    f.rmsDb = 10 * std::log10(e / kWindow + 1e-30);
    return f;
}

double median(std::vector<double> v) {
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

std::optional<Samples> load(tappix::SndfileDecoder& decoder, const Kit& kit,
                            const std::string& file) {
    std::string problem;
    auto buffer =
        decoder.decode(kit.sounds + QLatin1Char('/') + QString::fromStdString(file), problem);
    if (!buffer) {
        std::fprintf(stderr, "kit_features: %s/%s: %s\n", kit.config.id.c_str(), file.c_str(),
                     problem.c_str());
        return std::nullopt;
    }
    return std::move(buffer->samples);
}

void report(tappix::SndfileDecoder& decoder, const Kit& kit) {
    const auto& sounds = kit.config.sounds;
    std::vector<double> flatness, centroid, decay, keyCentroids, releaseDb;
    std::vector<std::string> pressFiles;
    for (char c = 'a'; c <= 'z'; ++c) {
        const auto found = sounds.find(std::string(1, c));
        if (found == sounds.end() || found->second.down.empty())
            continue;
        std::vector<double> keyCentroid, pressDb, upDb;
        for (const std::string& file : found->second.down) {
            if (const auto x = load(decoder, kit, file)) {
                const Features f = measure(*x);
                flatness.push_back(f.flatness);
                centroid.push_back(f.centroid);
                decay.push_back(f.decayMs);
                keyCentroid.push_back(f.centroid);
                pressDb.push_back(f.rmsDb);
            }
        }
        for (const std::string& file : found->second.up) {
            if (const auto x = load(decoder, kit, file))
                upDb.push_back(measure(*x).rmsDb);
        }
        if (!keyCentroid.empty())
            keyCentroids.push_back(median(keyCentroid));
        if (!pressDb.empty() && !upDb.empty())
            releaseDb.push_back(median(upDb) - median(pressDb));
    }
    if (flatness.empty()) {
        // No letters of its own: the ordinary-key sounds.
        const auto alpha = sounds.find("alpha");
        if (alpha != sounds.end()) {
            for (const std::string& file : alpha->second.down) {
                if (const auto x = load(decoder, kit, file)) {
                    const Features f = measure(*x);
                    flatness.push_back(f.flatness);
                    centroid.push_back(f.centroid);
                    decay.push_back(f.decayMs);
                }
            }
        }
    }
    if (flatness.empty())
        return; // not a keyboard of keys (the gun kits answer every key with "default")
    double spread = 0;
    if (keyCentroids.size() > 1) {
        const double mean = std::accumulate(keyCentroids.begin(), keyCentroids.end(), 0.0) /
                            double(keyCentroids.size());
        double var = 0;
        for (double c : keyCentroids)
            var += (c - mean) * (c - mean);
        spread = std::sqrt(var / double(keyCentroids.size() - 1)) / mean * 100;
    }
    std::printf(
        "%-22s %8zu %9.3f %9.0f %10.0f %8.1f %9s\n", kit.config.id.c_str(), flatness.size(),
        median(flatness), median(centroid), median(decay), spread,
        releaseDb.empty() ? "-" : QString::number(median(releaseDb), 'f', 1).toUtf8().constData());
}

// --- The spectrogram page -------------------------------------------------------------

constexpr int kCellW = 150, kCellH = 160, kLabelW = 200, kHeaderH = 34, kGap = 6;
constexpr int kStftSize = 512, kHop = 96; // 10.7 ms windows every 2 ms
constexpr double kMinHz = 100, kMaxHz = 20000, kRangeDb = 70;

struct Column {
    const char* title;
    std::vector<std::string> names; // first present is used
    bool up;
};
const Column kColumns[] = {
    {"a", {"a", "alpha"}, false},        {"j", {"j", "alpha"}, false},
    {"space", {"space"}, false},         {"enter", {"enter"}, false},
    {"backspace", {"backspace"}, false}, {"shift", {"shiftLeft", "modifier"}, false},
    {"a release", {"a", "alpha"}, true},
};

QColor heat(double v) {
    // Black → purple → orange → pale yellow.
    static const double stops[][3] = {{0, 0, 4},     {40, 11, 84},   {120, 28, 109},
                                      {200, 55, 70}, {246, 120, 20}, {252, 255, 164}};
    v = std::clamp(v, 0.0, 1.0) * 5;
    const int i = std::min(4, int(v));
    const double t = v - i;
    return QColor(int(stops[i][0] + t * (stops[i + 1][0] - stops[i][0])),
                  int(stops[i][1] + t * (stops[i + 1][1] - stops[i][1])),
                  int(stops[i][2] + t * (stops[i + 1][2] - stops[i][2])));
}

/// Spectrogram of the first 300 ms after the onset, on a log frequency axis; levels
/// relative to `refDb`, the loudest cell of the kit's presses.
std::vector<std::vector<double>> spectrogram(const Samples& x) {
    static float* in = fftwf_alloc_real(kStftSize);
    static fftwf_complex* out = fftwf_alloc_complex(kStftSize / 2 + 1);
    static fftwf_plan plan = fftwf_plan_dft_r2c_1d(kStftSize, in, out, FFTW_ESTIMATE);
    const std::size_t onset = onsetOf(x);
    std::vector<std::vector<double>> frames;
    for (int f = 0; f < kCellW; ++f) {
        const std::size_t start = onset + std::size_t(f) * kHop;
        for (int i = 0; i < kStftSize; ++i) {
            const double w = 0.5 - 0.5 * std::cos(2 * M_PI * i / kStftSize);
            const std::size_t n = start + std::size_t(i);
            // Centre the first window on the onset.
            const std::ptrdiff_t at = std::ptrdiff_t(n) - kStftSize / 2;
            in[i] = at >= 0 && std::size_t(at) < x.size() ? float(x[std::size_t(at)] * w) : 0.0f;
        }
        fftwf_execute(plan);
        std::vector<double> db(kStftSize / 2 + 1);
        for (std::size_t k = 0; k < db.size(); ++k)
            db[k] = 10 * std::log10(double(out[k][0]) * out[k][0] + double(out[k][1]) * out[k][1] +
                                    1e-20);
        frames.push_back(std::move(db));
    }
    return frames;
}

bool drawPage(tappix::SndfileDecoder& decoder, const std::vector<Kit>& kits, const QString& path) {
    const int columns = int(std::size(kColumns));
    QImage page(kLabelW + columns * (kCellW + kGap), kHeaderH + int(kits.size()) * (kCellH + kGap),
                QImage::Format_RGB32);
    page.fill(QColor(250, 250, 250));
    QPainter painter(&page);
    QFont font = painter.font();
    font.setPixelSize(13);
    painter.setFont(font);
    painter.setPen(Qt::black);
    for (int c = 0; c < columns; ++c)
        painter.drawText(QRect(kLabelW + c * (kCellW + kGap), 0, kCellW, kHeaderH), Qt::AlignCenter,
                         QString::fromUtf8(kColumns[c].title));
    painter.drawText(QRect(4, 0, kLabelW - 8, kHeaderH), Qt::AlignLeft | Qt::AlignVCenter,
                     QStringLiteral("0-300 ms, 100 Hz-20 kHz"));
    for (std::size_t r = 0; r < kits.size(); ++r) {
        const Kit& kit = kits[r];
        const int top = kHeaderH + int(r) * (kCellH + kGap);
        painter.setPen(Qt::black);
        painter.drawText(QRect(4, top, kLabelW - 8, kCellH), Qt::AlignLeft | Qt::AlignVCenter,
                         QString::fromStdString(kit.config.id));
        // The kit's loudest bin sets 0 dB for all its cells, so releases read quieter.
        std::vector<std::optional<std::vector<std::vector<double>>>> cells;
        double refDb = -200;
        for (const Column& column : kColumns) {
            std::optional<std::vector<std::vector<double>>> cell;
            for (const std::string& name : column.names) {
                const auto found = kit.config.sounds.find(name);
                if (found == kit.config.sounds.end())
                    continue;
                const auto& files = column.up ? found->second.up : found->second.down;
                if (files.empty())
                    continue;
                if (const auto x = load(decoder, kit, files.front()))
                    cell = spectrogram(*x);
                break;
            }
            if (cell) {
                for (const auto& frame : *cell)
                    refDb = std::max(refDb, *std::max_element(frame.begin(), frame.end()));
            }
            cells.push_back(std::move(cell));
        }
        for (int c = 0; c < columns; ++c) {
            const int left = kLabelW + c * (kCellW + kGap);
            if (!cells[std::size_t(c)]) {
                painter.fillRect(left, top, kCellW, kCellH, QColor(220, 220, 220));
                continue;
            }
            const auto& frames = *cells[std::size_t(c)];
            for (int px = 0; px < kCellW; ++px) {
                for (int py = 0; py < kCellH; ++py) {
                    const double hz =
                        kMinHz * std::pow(kMaxHz / kMinHz, double(kCellH - 1 - py) / (kCellH - 1));
                    const auto bin = std::size_t(std::lround(hz * kStftSize / kRate));
                    const double db = frames[std::size_t(px)][std::min(bin, std::size_t(256))];
                    page.setPixelColor(left + px, top + py, heat(1 + (db - refDb) / kRangeDb));
                }
            }
        }
    }
    painter.end();
    return page.save(path, "PNG");
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QString root, png;
    std::vector<std::string> only;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--png" && i + 1 < argc)
            png = QString::fromLocal8Bit(argv[++i]);
        else if (arg == "--kit" && i + 1 < argc)
            only.push_back(argv[++i]);
        else if (root.isEmpty())
            root = QString::fromLocal8Bit(argv[i]);
        else {
            std::fprintf(stderr, "usage: kit_features SOUNDPACKS_DIR [--png FILE] [--kit ID]...\n");
            return 2;
        }
    }
    if (root.isEmpty()) {
        std::fprintf(stderr, "usage: kit_features SOUNDPACKS_DIR [--png FILE] [--kit ID]...\n");
        return 2;
    }
    std::vector<Kit> kits;
    for (const QString& entry :
         QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        QFile manifest(root + QLatin1Char('/') + entry + QStringLiteral("/config.json"));
        if (!manifest.open(QIODevice::ReadOnly))
            continue;
        auto config = tappix::SoundpackConfig::decode(manifest.readAll());
        if (!config || config->metadata.category != "keyboard")
            continue;
        if (!only.empty() && std::find(only.begin(), only.end(), config->id) == only.end())
            continue;
        kits.push_back({*config, root + QLatin1Char('/') + entry + QStringLiteral("/sounds")});
    }
    tappix::SndfileDecoder decoder;
    std::printf("%-22s %8s %9s %9s %10s %8s %9s\n", "kit", "presses", "flatness", "centroid",
                "to -40 dB", "spread", "release");
    std::printf("%-22s %8s %9s %9s %10s %8s %9s\n", "", "", "", "Hz", "ms", "%", "dB");
    for (const Kit& kit : kits)
        report(decoder, kit);
    if (!png.isEmpty()) {
        std::vector<Kit> keyboards; // kits with sounds for ordinary keys
        for (const Kit& kit : kits) {
            if (kit.config.sounds.contains("a") || kit.config.sounds.contains("alpha"))
                keyboards.push_back(kit);
        }
        if (!drawPage(decoder, keyboards, png)) {
            std::fprintf(stderr, "kit_features: cannot write %s\n", qPrintable(png));
            return 1;
        }
        std::printf("spectrograms: %s\n", qPrintable(png));
    }
    return 0;
}

// kit_features: how the keyboard kits sound next to recordings of real keyboards, in
// numbers and pictures.
//
//   kit_features SOUNDPACKS_DIR [--recordings PACKS_DIR] [--family PACK=FAMILY]...
//                [--png FILE] [--ms N] [--kit ID]... [--envelopes]
//
// SOUNDPACKS_DIR holds Tappix kits (the build's share/tappix/Soundpacks). PACKS_DIR holds
// packs made for other programs, recorded from real keyboards: each is imported through
// Tappix's importer into a temporary directory and measured like a kit. A pack's family
// (linear, tactile, clicky, ...) comes from --family, else from the table in PACKS_DIR's
// README.md whose first column names packs and second their switch.
//
// For every keyboard kit, with KitFigures (src/analysis), medians over its press sounds:
//   centroid   spectral centroid of the first 40 ms after the onset, 200 Hz-12 kHz
//   flatness   spectral flatness of the same spectrum (0 pure tones, 1 white noise)
//   -40 dB     time from the onset until the sound stays under -40 dB of its peak
//   same       spectral-envelope distance (mean absolute difference of third-octave band
//              levels, dB) to the nearest recording of the kit's own family, and which
//   other      the same to the nearest recording of another family
//   spread     spread of centroids across the letter keys (standard deviation over mean)
//   release    level of releases against presses (RMS of the first 40 ms), median of
//              the letters' differences; a minus sign means quieter
// then the designer's presets (the press sounds a save renders for each group), then the
// range of each family's recordings. --envelopes prints every kit's envelope and
// each family's median envelope over its recordings as a C++ table.
// With --png, a page of spectrograms: one row per kit, the same keys in every row, each
// from 2 ms before the onset over 160 ms (or N ms with --ms).

#include "analysis/kit_figures.h"
#include "kits/kit_catalog.h"
#include "kits/soundpack_config.h"
#include "kits/switch_designer.h"
#include "kits/synth_engine.h"
#include "platform/pack_import.h"
#include "platform/sndfile/sndfile_decoder.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fftw3.h>
#include <map>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

namespace {

using tappix::KitFigures;
using Samples = std::vector<float>;

struct Kit {
    tappix::SoundpackConfig config;
    QString sounds;
    std::string family;
    bool recorded = false;
    std::string name; // the bundled kit's id, or the pack's folder name
    KitFigures figures;
    double spread = 0;
    std::optional<double> releaseDb;
};

std::optional<Samples> load(tappix::SndfileDecoder& decoder, const Kit& kit,
                            const std::string& file) {
    std::string problem;
    auto buffer =
        decoder.decode(kit.sounds + QLatin1Char('/') + QString::fromStdString(file), problem);
    if (!buffer) {
        std::fprintf(stderr, "kit_features: %s/%s: %s\n", kit.name.c_str(), file.c_str(),
                     problem.c_str());
        return std::nullopt;
    }
    return std::move(buffer->samples);
}

double median(std::vector<double> v) {
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

double rmsDb(const Samples& x) {
    float peak = 0;
    for (float v : x)
        peak = std::max(peak, std::fabs(v));
    std::size_t onset = 0;
    while (onset < x.size() && std::fabs(x[onset]) <= 0.1f * peak)
        ++onset;
    double e = 0;
    const std::size_t n = 1920;
    for (std::size_t i = onset; i < std::min(x.size(), onset + n); ++i)
        e += double(x[i]) * x[i];
    return 10 * std::log10(e / double(n) + 1e-30);
}

void measure(tappix::SndfileDecoder& decoder, Kit& kit) {
    kit.figures = KitFigures::ofKit(
        kit.config, [&](const std::string& file) { return load(decoder, kit, file); });
    // Spread across letters and release level, where the kit has letters of its own.
    std::vector<double> keyCentroids, releaseDb;
    for (char c = 'a'; c <= 'z'; ++c) {
        const auto found = kit.config.sounds.find(std::string(1, c));
        if (found == kit.config.sounds.end())
            continue;
        std::vector<double> centroid, pressDb, upDb;
        for (const std::string& file : found->second.down) {
            if (const auto x = load(decoder, kit, file)) {
                if (const auto press = KitFigures::measure(*x))
                    centroid.push_back(press->centroidHz);
                pressDb.push_back(rmsDb(*x));
            }
        }
        for (const std::string& file : found->second.up) {
            if (const auto x = load(decoder, kit, file))
                upDb.push_back(rmsDb(*x));
        }
        if (!centroid.empty())
            keyCentroids.push_back(median(centroid));
        if (!pressDb.empty() && !upDb.empty())
            releaseDb.push_back(median(upDb) - median(pressDb));
    }
    if (keyCentroids.size() > 1) {
        const double mean = std::accumulate(keyCentroids.begin(), keyCentroids.end(), 0.0) /
                            double(keyCentroids.size());
        double var = 0;
        for (double c : keyCentroids)
            var += (c - mean) * (c - mean);
        kit.spread = std::sqrt(var / double(keyCentroids.size() - 1)) / mean * 100;
    }
    if (!releaseDb.empty())
        kit.releaseDb = median(releaseDb);
}

/// The nearest recording to `kit` (never itself) of `family` (or of any other family
/// when `same` is false): its name and distance.
std::pair<std::string, double> nearest(const Kit& kit, const std::vector<Kit>& kits, bool same) {
    std::pair<std::string, double> best{"-", 1e9};
    for (const Kit& other : kits) {
        if (!other.recorded || &other == &kit || (other.family == kit.family) != same)
            continue;
        const double d = KitFigures::distance(kit.figures.envelope, other.figures.envelope);
        if (d < best.second)
            best = {other.name, d};
    }
    return best;
}

// --- The spectrogram page -------------------------------------------------------------

constexpr int kCellW = 160, kCellH = 150, kLabelW = 230, kHeaderH = 34, kGap = 6;
constexpr int kStftSize = 256; // 5.3 ms windows
/// Samples between frames: 1 ms by default, 160 ms per cell (--ms).
int hop = 48;
constexpr double kRate = 48000, kMinHz = 100, kMaxHz = 20000, kRangeDb = 70;

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

/// Spectrogram from 2 ms before the onset (first sample above 10 % of the peak), frame
/// by frame in dB.
std::vector<std::vector<double>> spectrogram(const Samples& x) {
    static float* in = fftwf_alloc_real(kStftSize);
    static fftwf_complex* out = fftwf_alloc_complex(kStftSize / 2 + 1);
    static fftwf_plan plan = fftwf_plan_dft_r2c_1d(kStftSize, in, out, FFTW_ESTIMATE);
    float peak = 0;
    for (float v : x)
        peak = std::max(peak, std::fabs(v));
    std::ptrdiff_t onset = 0;
    while (std::size_t(onset) < x.size() && std::fabs(x[std::size_t(onset)]) <= 0.1f * peak)
        ++onset;
    std::vector<std::vector<double>> frames;
    for (int f = 0; f < kCellW; ++f) {
        // Each window centred on its frame's time.
        const std::ptrdiff_t start = onset - 96 + std::ptrdiff_t(f) * hop - kStftSize / 2;
        for (int i = 0; i < kStftSize; ++i) {
            const double w = 0.5 - 0.5 * std::cos(2 * M_PI * i / kStftSize);
            const std::ptrdiff_t at = start + i;
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

bool drawPage(tappix::SndfileDecoder& decoder, const std::vector<const Kit*>& kits,
              const QString& path) {
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
                     QStringLiteral("-2…%1 ms, 100 Hz-20 kHz (log)").arg(kCellW * hop / 48 - 2));
    for (std::size_t r = 0; r < kits.size(); ++r) {
        const Kit& kit = *kits[r];
        const int top = kHeaderH + int(r) * (kCellH + kGap);
        painter.setPen(Qt::black);
        const KitFigures& f = kit.figures;
        painter.drawText(QRect(4, top, kLabelW - 8, kCellH), Qt::AlignLeft | Qt::AlignVCenter,
                         QString::fromStdString(kit.name) + QLatin1Char('\n') +
                             QString::fromStdString(kit.family) +
                             (kit.recorded ? QStringLiteral(", recorded") : QString()) +
                             QStringLiteral("\n%1 kHz, %2, %3 ms")
                                 .arg(f.centroidHz / 1000, 0, 'f', 2)
                                 .arg(f.flatness, 0, 'f', 3)
                                 .arg(f.decayMs, 0, 'f', 0));
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
                    const double db =
                        frames[std::size_t(px)][std::min(bin, std::size_t(kStftSize / 2))];
                    page.setPixelColor(left + px, top + py, heat(1 + (db - refDb) / kRangeDb));
                }
            }
        }
    }
    painter.end();
    return page.save(path, "PNG");
}

/// Pack folder → family, from a README table whose rows read "| pack, pack | family | …".
std::map<std::string, std::string> familiesFromReadme(const QString& packs) {
    std::map<std::string, std::string> families;
    QFile readme(packs + QStringLiteral("/README.md"));
    if (!readme.open(QIODevice::ReadOnly))
        return families;
    for (const QString& line : QString::fromUtf8(readme.readAll()).split(QLatin1Char('\n'))) {
        const QStringList cells = line.split(QLatin1Char('|'));
        if (cells.size() < 4)
            continue;
        const QString family = cells[2].trimmed().toLower();
        for (const QString& pack : cells[1].split(QLatin1Char(','))) {
            const QString name = pack.trimmed();
            if (!name.isEmpty() && QDir(packs + QLatin1Char('/') + name).exists())
                families[name.toStdString()] = family.toStdString();
        }
    }
    return families;
}

void printRow(const Kit& kit, const std::vector<Kit>& kits) {
    const auto same = nearest(kit, kits, true);
    const auto other = nearest(kit, kits, false);
    const KitFigures& f = kit.figures;
    std::printf("%-24s %-8s %5zu %7.0f %8.3f %6.0f %5.1f %-24s %5.1f %-24s %6.1f %7s\n",
                kit.name.c_str(), kit.family.c_str(), f.presses, f.centroidHz, f.flatness,
                f.decayMs, same.second > 1e8 ? 0.0 : same.second, same.first.c_str(),
                other.second > 1e8 ? 0.0 : other.second, other.first.c_str(), kit.spread,
                kit.releaseDb ? QString::number(*kit.releaseDb, 'f', 1).toUtf8().constData() : "-");
}

int usage() {
    std::fprintf(stderr,
                 "usage: kit_features SOUNDPACKS_DIR [--recordings PACKS_DIR] "
                 "[--family PACK=FAMILY]... [--png FILE] [--ms N] [--kit ID]... [--envelopes]\n");
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QString root, png, recordings;
    std::vector<std::string> only;
    std::map<std::string, std::string> families;
    bool envelopes = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--png" && i + 1 < argc)
            png = QString::fromLocal8Bit(argv[++i]);
        else if (arg == "--recordings" && i + 1 < argc)
            recordings = QString::fromLocal8Bit(argv[++i]);
        else if (arg == "--kit" && i + 1 < argc)
            only.push_back(argv[++i]);
        else if (arg == "--family" && i + 1 < argc) {
            const std::string pair = argv[++i];
            const auto eq = pair.find('=');
            if (eq == std::string::npos)
                return usage();
            families[pair.substr(0, eq)] = pair.substr(eq + 1);
        } else if (arg == "--ms" && i + 1 < argc) {
            hop = std::max(1, std::atoi(argv[++i]) * 48 / kCellW);
        } else if (arg == "--envelopes")
            envelopes = true;
        else if (root.isEmpty())
            root = QString::fromLocal8Bit(argv[i]);
        else
            return usage();
    }
    if (root.isEmpty())
        return usage();

    std::vector<Kit> kits;
    for (const QString& entry :
         QDir(root).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        QFile manifest(root + QLatin1Char('/') + entry + QStringLiteral("/config.json"));
        if (!manifest.open(QIODevice::ReadOnly))
            continue;
        auto config = tappix::SoundpackConfig::decode(manifest.readAll());
        // Keyboards of keys: the gun kits answer every key with "default".
        if (!config || config->metadata.category != "keyboard" || !config->sounds.contains("a"))
            continue;
        if (!only.empty() && std::find(only.begin(), only.end(), config->id) == only.end())
            continue;
        const tappix::Soundpack pack{*config, root + QLatin1Char('/') + entry, false};
        const auto family = tappix::KitCatalog::family(pack);
        kits.push_back({*config,
                        root + QLatin1Char('/') + entry + QStringLiteral("/sounds"),
                        family ? std::string(tappix::KitCatalog::rawValue(*family)) : "-",
                        false,
                        config->id,
                        {},
                        0,
                        {}});
    }

    QTemporaryDir imported;
    if (!recordings.isEmpty()) {
        auto fromReadme = familiesFromReadme(recordings);
        for (auto& [pack, family] : families)
            fromReadme[pack] = family;
        for (const QString& entry :
             QDir(recordings).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
            tappix::PackImporter::Options options;
            options.kitDirectory = imported.path();
            options.id = "recorded-" + tappix::PackImporter::kitIdFor(entry.toStdString());
            const auto result = tappix::importPack(recordings + QLatin1Char('/') + entry, options);
            if (!result.ok()) {
                std::fprintf(stderr, "kit_features: %s does not import: %s\n", qPrintable(entry),
                             result.error.c_str());
                continue;
            }
            for (const std::string& problem : result.problems)
                std::fprintf(stderr, "kit_features: %s: %s\n", qPrintable(entry), problem.c_str());
            const auto family = fromReadme.find(entry.toStdString());
            kits.push_back({*result.config,
                            result.directory + QStringLiteral("/sounds"),
                            family == fromReadme.end() ? "-" : family->second,
                            true,
                            entry.toStdString(),
                            {},
                            0,
                            {}});
        }
    }

    tappix::SndfileDecoder decoder;
    for (Kit& kit : kits)
        measure(decoder, kit);

    std::printf("%-24s %-8s %5s %7s %8s %6s %5s %-24s %5s %-24s %6s %7s\n", "kit", "family",
                "press", "centr.", "flatness", "-40dB", "same", "nearest recording", "other",
                "nearest other family", "spread", "release");
    std::printf("%-24s %-8s %5s %7s %8s %6s %5s %-24s %5s %-24s %6s %7s\n", "", "", "", "Hz", "",
                "ms", "dB", "", "dB", "", "%", "dB");
    for (bool recorded : {false, true}) {
        for (const Kit& kit : kits) {
            if (kit.recorded == recorded)
                printRow(kit, kits);
        }
    }

    // The designer's presets, measured on the presses a save of them renders.
    std::printf("\n%-24s %7s %8s %6s\n", "designer preset", "centr.", "flatness", "-40dB");
    for (const auto& preset : tappix::SwitchDesigner::kPresets) {
        std::vector<KitFigures::Press> presses;
        std::uint64_t seed = tappix::SwitchDesigner::kFirstSeed;
        for (const std::string_view group : tappix::SwitchDesigner::kGroups) {
            const auto params = tappix::SwitchDesigner::groupParams(group, preset.params);
            for (int i = 0;
                 i < tappix::SwitchDesigner::kPresses + tappix::SwitchDesigner::kReleases;
                 ++i, seed += tappix::SwitchDesigner::kSeedStep) {
                if (i >= tappix::SwitchDesigner::kPresses)
                    continue;
                if (const auto press =
                        KitFigures::measure(tappix::SynthEngine::render(params, seed, false)))
                    presses.push_back(*press);
            }
        }
        const KitFigures f = KitFigures::summarise(presses);
        std::printf("%-24s %7.0f %8.3f %6.0f\n", std::string(preset.name).c_str(), f.centroidHz,
                    f.flatness, f.decayMs);
    }

    // Each family's recordings: the range of their figures.
    std::map<std::string, std::vector<const Kit*>> byFamily;
    for (const Kit& kit : kits) {
        if (kit.recorded)
            byFamily[kit.family].push_back(&kit);
    }
    if (!byFamily.empty()) {
        std::printf("\nrecorded %-15s %7s %17s %15s %9s\n", "family", "packs", "centroid Hz",
                    "flatness", "-40 dB ms");
        for (const auto& [family, members] : byFamily) {
            double c[2] = {1e9, 0}, f[2] = {1e9, 0}, d[2] = {1e9, 0};
            for (const Kit* kit : members) {
                c[0] = std::min(c[0], kit->figures.centroidHz);
                c[1] = std::max(c[1], kit->figures.centroidHz);
                f[0] = std::min(f[0], kit->figures.flatness);
                f[1] = std::max(f[1], kit->figures.flatness);
                d[0] = std::min(d[0], kit->figures.decayMs);
                d[1] = std::max(d[1], kit->figures.decayMs);
            }
            std::printf("         %-15s %7zu %8.0f-%-8.0f %6.3f-%-8.3f %4.0f-%-4.0f\n",
                        family.c_str(), members.size(), c[0], c[1], f[0], f[1], d[0], d[1]);
        }
    }
    if (envelopes) {
        std::printf("\nspectral envelopes, dB by third-octave band from 200 Hz to 10 kHz\n");
        for (const Kit& kit : kits) {
            std::printf("%-24s", kit.name.c_str());
            for (double band : kit.figures.envelope)
                std::printf(" %5.1f", band);
            std::printf("\n");
        }
        std::printf("\n// Median spectral envelope of each family's recordings, dB by band.\n");
        for (const auto& [family, members] : byFamily) {
            KitFigures::Envelope median{};
            for (std::size_t b = 0; b < median.size(); ++b) {
                std::vector<double> band;
                for (const Kit* kit : members)
                    band.push_back(kit->figures.envelope[b]);
                std::sort(band.begin(), band.end());
                const std::size_t n = band.size();
                median[b] = n % 2 ? band[n / 2] : 0.5 * (band[n / 2 - 1] + band[n / 2]);
            }
            const double mean =
                std::accumulate(median.begin(), median.end(), 0.0) / double(median.size());
            std::printf("{\"%s\", {", family.c_str());
            for (std::size_t b = 0; b < median.size(); ++b)
                std::printf("%s%.1f", b ? ", " : "", median[b] - mean);
            std::printf("}},\n");
        }
    }

    if (!png.isEmpty()) {
        // Bundled kits first, then the recordings family by family.
        std::vector<const Kit*> rows;
        for (const Kit& kit : kits) {
            if (!kit.recorded)
                rows.push_back(&kit);
        }
        for (const auto& [family, members] : byFamily)
            rows.insert(rows.end(), members.begin(), members.end());
        if (!drawPage(decoder, rows, png)) {
            std::fprintf(stderr, "kit_features: cannot write %s\n", qPrintable(png));
            return 1;
        }
        std::printf("\nspectrograms: %s\n", qPrintable(png));
    }
    return 0;
}

// tappix-kit: a command-line companion for people who make Tappix kits.

#include "audio/audio_player.h"
#include "core/qt_scheduler.h"
#include "input/key_codes.h"
#include "input/key_group.h"
#include "kits/bundled_kits.h"
#include "kits/keyboard_recording.h"
#include "kits/kit_checker.h"
#include "kits/soundpack_store.h"
#include "kits/switch_designer.h"
#include "kits/synth_engine.h"
#include "platform/audio_backends.h"
#include "platform/capture_backends.h"
#include "platform/dbus/remote_control_client.h"
#include "platform/evdev/evdev_keymap.h"
#include "platform/pack_import.h"
#include "platform/sndfile/sndfile_decoder.h"
#include "settings/json_file_preferences.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QThread>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char* kHelp =
    "Usage: tappix-kit COMMAND [OPTIONS]\n"
    "\n"
    "Tools for people who make Tappix sound kits.\n"
    "\n"
    "Commands:\n"
    "  keys          Print every key code Tappix delivers, one per line, tab-separated:\n"
    "                  code     the key code (0-127 keyboard keys, 1000-1022 media keys)\n"
    "                  name     the name a kit's config.json uses for the key, or -\n"
    "                  group    the keyboard region a mix assigns by (letters, space,\n"
    "                           enter, backspace, modifier, arrows, functionRow, numberRow)\n"
    "                  column   the key's column 0 (left) to 13 (right), or -\n"
    "                  pan      the key's stereo position before the kit's width (-0.35..0.35)\n"
    "                  typing   yes when a press counts as typing in the statistics\n"
    "                  label    the key-cast overlay's key-cap text, or -\n"
    "                  sounds   the sound names tried in a kit, in order\n"
    "\n"
    "  check DIR     Check the kit in DIR as Tappix will load it: config.json decodes,\n"
    "                every file it names is a safe, decodable sample, and every key finds a\n"
    "                sound. Prints each problem and exits 1, or prints a summary and exits 0.\n"
    "\n"
    "  render        Synthesise one keystroke into a 16-bit 48 kHz WAV file.\n"
    "                  --body-hz HZ    pitch of the key's body (default 400)\n"
    "                  --click GAIN    loudness of the initial click (default 0.8)\n"
    "                  --decay-ms MS   decay time constant; the sound lasts four (default 12)\n"
    "                  --tone-hz HZ    corner of the final low-pass (default 8000)\n"
    "                  --clicky        add the 2600 Hz leaf of clicky switches\n"
    "                  --seed N        the random seed; same seed, same sound (default 1)\n"
    "                  --up            the release instead of the press\n"
    "                  --out FILE      where to write (required)\n"
    "\n"
    "  ding --out FILE   Write the Return bell to a WAV file.\n"
    "\n"
    "  play DIR [--key NAME] [--up]\n"
    "                Play one variant of the kit in DIR on the default output and return\n"
    "                once it has sounded. NAME is a sound key of the kit (default: the\n"
    "                first of alpha, default); --up plays a release sound.\n"
    "\n"
    "  bundle OUTDIR [--recordings DIR] [--kit ID]...\n"
    "                Write the kits Tappix ships into OUTDIR (used by the build): the\n"
    "                synthesised kits, and the buckling-spring kit from the per-key\n"
    "                recordings in DIR (default /usr/share/buckle/wav) when present.\n"
    "                Each --kit limits the output to the kits named; the same kit is\n"
    "                the same bytes on every machine.\n"
    "\n"
    "  import SRC [--id ID] [--no-select]\n"
    "                Turn a keyboard-sound pack made for another program (a directory or\n"
    "                a .zip holding its config.json and audio) into a Tappix kit in your\n"
    "                kit directory, and select it. Parts of the pack that cannot be used\n"
    "                are listed one per line; importing the same pack again replaces the\n"
    "                earlier import.\n"
    "                  --id ID       the kit's id (default: imported- and the pack's name)\n"
    "                  --no-select   leave the selected kit as it is\n"
    "\n"
    "  record [DIR] --name NAME [--keys LIST] [--times N] [--retakes N]\n"
    "         [--keep-recording FILE]\n"
    "                Make a kit of your own keyboard's sound: records from the default\n"
    "                microphone while you type the keys it asks for, N times each\n"
    "                (default 5), cuts each press and release out of the recording, and\n"
    "                writes the kit recorded-NAME into DIR (default your kit directory),\n"
    "                selecting it there. LIST is key names separated by commas (default\n"
    "                a,s,d,f,j,space,return,backspace,shift). Keys whose takes were too\n"
    "                quiet, clipped or too fast are asked for again, in up to --retakes\n"
    "                rounds (default 2). A running Tappix is kept quiet while recording.\n"
    "                --keep-recording saves the raw recording as a WAV file, and beside\n"
    "                it FILE.onsets: where each take starts, in seconds.\n"
    "\n"
    "  help          Show this text (also -h, --help).\n";

int usageError(const std::string& message) {
    std::fprintf(stderr, "tappix-kit: %s\n(tappix-kit --help explains every command)\n",
                 message.c_str());
    return 2;
}

void printKey(tappix::KeyCode code) {
    const auto name = tappix::keyName(code);
    const auto column = tappix::keyColumn(code);
    const auto label = tappix::keyLabel(code);
    std::string candidates;
    for (std::string_view candidate : tappix::soundCandidates(code)) {
        if (!candidates.empty())
            candidates += ',';
        candidates += candidate;
    }
    const std::string_view group = tappix::KeyGroup::of(code).rawValue();
    std::printf("%lld\t%.*s\t%.*s\t%s\t%.6f\t%s\t%.*s\t%s\n", static_cast<long long>(code),
                static_cast<int>(name ? name->size() : 1), name ? name->data() : "-",
                static_cast<int>(group.size()), group.data(),
                column ? std::to_string(*column).c_str() : "-",
                static_cast<double>(tappix::panPosition(code)),
                tappix::isTypingKey(code) ? "yes" : "no",
                static_cast<int>(label ? label->size() : 1), label ? label->data() : "-",
                candidates.c_str());
}

int keys() {
    for (tappix::KeyCode code = 0; code <= 127; ++code)
        printKey(code);
    for (tappix::KeyCode code = 1000; code <= 1022; ++code)
        printKey(code);
    return 0;
}

int check(const std::vector<std::string>& args) {
    if (args.size() != 1)
        return usageError("check needs exactly one kit directory");
    tappix::SndfileDecoder decoder;
    const tappix::KitReport report = tappix::checkKit(QString::fromStdString(args[0]), decoder);
    if (!report.ok()) {
        std::printf("%s: %zu problem%s\n", args[0].c_str(), report.problems.size(),
                    report.problems.size() == 1 ? "" : "s");
        for (const std::string& problem : report.problems)
            std::printf("  - %s\n", problem.c_str());
        return 1;
    }
    for (const std::string& line : tappix::describeKit(report))
        std::printf("%s\n", line.c_str());
    std::printf("OK\n");
    return 0;
}

bool parseNumber(const std::string& text, double min, double max, double& out) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !std::isfinite(value) || value < min || value > max)
        return false;
    out = value;
    return true;
}

int render(const std::vector<std::string>& args) {
    tappix::SynthParams params{400, 0.8f, 12, 8000, false};
    std::uint64_t seed = 1;
    bool up = false;
    std::string out;
    struct Range {
        const char* flag;
        float* field;
        double min, max;
    };
    const Range ranges[] = {{"--body-hz", &params.bodyHz, 20, 20000},
                            {"--click", &params.click, 0, 10},
                            {"--decay-ms", &params.decayMs, 0, 2000},
                            {"--tone-hz", &params.toneHz, 20, 24000}};
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        const bool hasValue = i + 1 < args.size();
        bool handled = false;
        for (const Range& range : ranges) {
            if (arg != range.flag)
                continue;
            double value = 0;
            if (!hasValue || !parseNumber(args[++i], range.min, range.max, value))
                return usageError(std::string(range.flag) + " needs a number from " +
                                  std::to_string(static_cast<int>(range.min)) + " to " +
                                  std::to_string(static_cast<int>(range.max)));
            *range.field = static_cast<float>(value);
            handled = true;
        }
        if (handled)
            continue;
        if (arg == "--clicky") {
            params.clicky = true;
        } else if (arg == "--up") {
            up = true;
        } else if (arg == "--seed" && hasValue) {
            char* end = nullptr;
            seed = std::strtoull(args[++i].c_str(), &end, 10);
            if (*end != '\0')
                return usageError("--seed needs a whole number");
        } else if (arg == "--out" && hasValue) {
            out = args[++i];
        } else {
            return usageError("render does not know '" + arg + "'");
        }
    }
    if (out.empty())
        return usageError("render needs --out FILE");
    std::string error;
    const auto samples = tappix::SynthEngine::render(params, seed, up);
    if (!tappix::writeWav(samples, out, error)) {
        std::fprintf(stderr, "tappix-kit: cannot write %s: %s\n", out.c_str(), error.c_str());
        return 1;
    }
    std::printf("%s: %zu samples (%.1f ms)\n", out.c_str(), samples.size(), samples.size() / 48.0);
    return 0;
}

int ding(const std::vector<std::string>& args) {
    if (args.size() != 2 || args[0] != "--out")
        return usageError("ding needs --out FILE");
    std::string error;
    if (!tappix::writeWav(tappix::SynthEngine::ding(), args[1], error)) {
        std::fprintf(stderr, "tappix-kit: cannot write %s: %s\n", args[1].c_str(), error.c_str());
        return 1;
    }
    std::printf("%s: the bell, 0.55 s\n", args[1].c_str());
    return 0;
}

int play(const std::vector<std::string>& args) {
    std::string dir, key;
    bool up = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--key" && i + 1 < args.size())
            key = args[++i];
        else if (args[i] == "--up")
            up = true;
        else if (dir.empty() && args[i].rfind("--", 0) != 0)
            dir = args[i];
        else
            return usageError("play does not know '" + args[i] + "'");
    }
    if (dir.empty())
        return usageError("play needs a kit directory");
    tappix::SndfileDecoder checker;
    const tappix::KitReport report = tappix::checkKit(QString::fromStdString(dir), checker);
    if (!report.config) {
        std::fprintf(stderr, "tappix-kit: %s\n", report.problems.front().c_str());
        return 1;
    }
    const auto& sounds = report.config->sounds;
    if (key.empty())
        key = sounds.contains("alpha") ? "alpha" : "default";
    auto found = sounds.find(key);
    if (found == sounds.end()) {
        std::fprintf(stderr, "tappix-kit: the kit has no sound \"%s\"\n", key.c_str());
        return 1;
    }
    const auto& variants = up ? found->second.up : found->second.down;
    if (variants.empty()) {
        std::fprintf(stderr, "tappix-kit: sound \"%s\" has no %s variants\n", key.c_str(),
                     up ? "up" : "down");
        return 1;
    }
    std::random_device device;
    const std::string variant =
        variants[std::uniform_int_distribution<std::size_t>(0, variants.size() - 1)(device)];

    auto devices = tappix::makeAudioDeviceManager();
    tappix::AudioPlayer player(tappix::makeAudioOutput(), tappix::makeSampleDecoder(), *devices,
                               1.0f);
    if (!player.output().isPlaying()) {
        std::fprintf(stderr, "tappix-kit: no sound server to play on\n");
        return 1;
    }
    const QString sounds_dir = QString::fromStdString(dir) + QStringLiteral("/sounds");
    player.loadSampleSets({{report.config->id, sounds_dir, {variant}}});
    if (!player.hasSample(report.config->id, variant)) {
        std::fprintf(stderr, "tappix-kit: %s did not load\n", variant.c_str());
        return 1;
    }
    // The sound's command is the next one the mixer takes: once the mixer's safe sequence
    // passes it, the sound has been mixed out whole (a short one may go out in a single
    // write, so its voice is never seen busy) or dropped as late.
    const std::uint64_t before = player.mixer().safeSequence();
    player.play(report.config->id, variant, 1.0f, 0.0f, 1.0f);
    player.drain();
    constexpr int kPlayWaitMs = 10000;
    QElapsedTimer waited;
    waited.start();
    while (player.mixer().safeSequence() <= before) {
        if (waited.elapsed() > kPlayWaitMs) {
            std::fprintf(stderr, "tappix-kit: the output did not play %s\n", variant.c_str());
            return 1;
        }
        QThread::msleep(2);
    }
    // Then the server's buffer has to pass.
    const double passSeconds = player.output().bufferSeconds() + player.output().latencySeconds();
    QThread::msleep(static_cast<unsigned long>(passSeconds * 1000) + 50);
    std::printf("played %s (%s, %s)\n", variant.c_str(), key.c_str(), up ? "up" : "down");
    return 0;
}

bool writeKit(const tappix::BundledKit& kit, const QString& root) {
    const QString dir = root + QLatin1Char('/') + QString::fromStdString(kit.config.id);
    QDir(dir).removeRecursively();
    if (!QDir().mkpath(dir + QStringLiteral("/sounds"))) {
        std::fprintf(stderr, "tappix-kit: cannot create %s\n", qPrintable(dir));
        return false;
    }
    for (const auto& [name, samples] : kit.files) {
        std::string error;
        const std::string path =
            (dir + QStringLiteral("/sounds/") + QString::fromStdString(name)).toStdString();
        if (!tappix::writeWav(samples, path, error)) {
            std::fprintf(stderr, "tappix-kit: cannot write %s: %s\n", path.c_str(), error.c_str());
            return false;
        }
    }
    QFile manifest(dir + QStringLiteral("/config.json"));
    if (!manifest.open(QIODevice::WriteOnly)) {
        std::fprintf(stderr, "tappix-kit: cannot write %s\n", qPrintable(manifest.fileName()));
        return false;
    }
    manifest.write(QJsonDocument(kit.config.toJson()).toJson(QJsonDocument::Indented));
    return true;
}

int bundle(const std::vector<std::string>& args) {
    QString out, recordings = QStringLiteral("/usr/share/buckle/wav");
    std::vector<std::string> only;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--recordings" && i + 1 < args.size())
            recordings = QString::fromStdString(args[++i]);
        else if (args[i] == "--kit" && i + 1 < args.size())
            only.push_back(args[++i]);
        else if (out.isEmpty() && args[i].rfind("--", 0) != 0)
            out = QString::fromStdString(args[i]);
        else
            return usageError("bundle does not know '" + args[i] + "'");
    }
    if (out.isEmpty())
        return usageError("bundle needs an output directory");
    const auto ids = tappix::synthesizedKitIds();
    for (const std::string& id : only) {
        if (id != "ibm-buckling-spring" && std::find(ids.begin(), ids.end(), id) == ids.end())
            return usageError("bundle has no kit '" + id + "'");
    }
    const auto wanted = [&](const std::string& id) {
        return only.empty() || std::find(only.begin(), only.end(), id) != only.end();
    };
    int written = 0;
    for (const std::string& id : ids) {
        if (!wanted(id))
            continue;
        if (!writeKit(*tappix::synthesizedKit(id), out))
            return 1;
        ++written;
    }
    if (wanted("ibm-buckling-spring")) {
        tappix::SndfileDecoder decoder;
        std::string error;
        auto spring = tappix::bucklingSpringKit(
            recordings, decoder,
            [](int code) {
                return tappix::evdev::virtualKeyCode(static_cast<std::uint16_t>(code));
            },
            error);
        if (spring) {
            if (!writeKit(*spring, out))
                return 1;
            ++written;
        } else {
            std::fprintf(stderr, "tappix-kit: buckling-spring kit skipped: %s\n", error.c_str());
        }
    }
    std::printf("wrote %d kit%s to %s\n", written, written == 1 ? "" : "s", qPrintable(out));
    return 0;
}

// Whether a Tappix runs for this user: it owns its name on the session bus, or answers
// on its instance socket (the same path the application listens on).
bool isTappixRunning() {
    if (tappix::RemoteControlClient().isRunning())
        return true;
    QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (runtime.isEmpty())
        runtime = QDir::tempPath();
    QLocalSocket socket;
    socket.connectToServer(runtime + QStringLiteral("/app.morvane.tappix.socket"));
    const bool answered = socket.waitForConnected(500);
    socket.abort();
    return answered;
}

// Makes `id` the selected kit in the preferences file, unless that is unsafe: a
// running Tappix keeps its own copy of the preferences and would write over the
// change, and a file that does not parse is the user's to repair. Prints what it did.
void selectImportedKit(const tappix::SoundpackConfig& kit) {
    const QString id = QString::fromStdString(kit.id);
    if (isTappixRunning()) {
        std::printf("Tappix is running, so the kit is not selected yet: quit Tappix, start it "
                    "again, and pick \"%s\" among the kits (or run: tappix --kit %s)\n",
                    kit.metadata.name.c_str(), kit.id.c_str());
        return;
    }
    const QString path = tappix::JsonFilePreferences::defaultPath();
    QFile existing(path);
    if (existing.exists()) {
        if (!existing.open(QIODevice::ReadOnly) ||
            !QJsonDocument::fromJson(existing.readAll()).isObject()) {
            std::printf("%s does not read as Tappix preferences, so it is left alone: pick "
                        "\"%s\" among the kits when Tappix runs (or run: tappix --kit %s)\n",
                        qPrintable(path), kit.metadata.name.c_str(), kit.id.c_str());
            return;
        }
    }
    tappix::QtScheduler scheduler;
    tappix::JsonFilePreferences preferences(path, scheduler);
    preferences.setValue(QStringLiteral("selectedPackId"), id);
    preferences.sync();
    std::printf("selected \"%s\": Tappix plays it from its next start\n",
                kit.metadata.name.c_str());
}

int importPack(const std::vector<std::string>& args) {
    QString source;
    tappix::PackImporter::Options options;
    bool select = true;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--id" && i + 1 < args.size())
            options.id = args[++i];
        else if (args[i] == "--no-select")
            select = false;
        else if (source.isEmpty() && args[i].rfind("--", 0) != 0)
            source = QString::fromStdString(args[i]);
        else
            return usageError("import does not know '" + args[i] + "'");
    }
    if (source.isEmpty())
        return usageError("import needs a pack: a directory or a .zip file");
    if (!options.id.empty() && !tappix::PackImporter::isValidKitId(options.id))
        return usageError("--id needs 1 to 64 lower-case letters, digits, dots, dashes or "
                          "underscores");
    options.kitDirectory = tappix::SoundpackStore::defaultUserDirectory();
    tappix::SoundpackStore bundled(tappix::SoundpackStore::defaultBundleDirectory(), QString());
    bundled.reload();
    for (const auto& pack : bundled.packs())
        options.reservedIds.push_back(pack.config.id);

    const tappix::PackImportResult result = tappix::importPack(source, options);
    for (const std::string& problem : result.problems)
        std::printf("problem: %s\n", problem.c_str());
    if (!result.ok()) {
        std::fprintf(stderr, "tappix-kit: cannot import %s: %s\n", qPrintable(source),
                     result.error.c_str());
        return 1;
    }
    for (const std::string& note : result.notes)
        std::printf("note: %s\n", note.c_str());
    const tappix::SoundpackConfig& kit = *result.config;
    std::printf("%s \"%s\" as %s in %s (%zu sound keys%s)\n",
                result.replaced ? "imported again" : "imported", kit.metadata.name.c_str(),
                kit.id.c_str(), qPrintable(result.directory), kit.sounds.size(),
                kit.metadata.supportsKeyUp ? ", with release sounds" : "");
    if (select)
        selectImportedKit(kit);
    return 0;
}

// Keeps a running Tappix quiet while recording, so its own sounds never reach the
// microphone, and turns it back on afterwards if it was on.
class QuietTappix {
public:
    QuietTappix() {
        if (!client_.isRunning())
            return;
        const auto properties = client_.properties();
        if (!properties.ok || !properties.value.toMap().value(QStringLiteral("Enabled")).toBool())
            return;
        turnedOff_ = client_.setProperty(QStringLiteral("Enabled"), false).ok;
        if (turnedOff_)
            std::printf("Tappix's own sounds are off while recording.\n");
    }
    ~QuietTappix() {
        if (turnedOff_ && !client_.setProperty(QStringLiteral("Enabled"), true).ok)
            std::printf("Could not turn Tappix's sounds back on: run tappix --on\n");
    }
    QuietTappix(const QuietTappix&) = delete;
    QuietTappix& operator=(const QuietTappix&) = delete;

private:
    tappix::RemoteControlClient client_;
    bool turnedOff_ = false;
};

// The key a word on the command line names: a kit key name ("space", "shiftLeft"),
// the name the recorder shows ("Return", "left Shift"), or "shift", "ctrl", "alt".
std::optional<tappix::KeyCode> keyNamed(const std::string& word) {
    const QString wanted = QString::fromStdString(word).toLower();
    if (wanted == QLatin1String("shift"))
        return tappix::keys::shift;
    if (wanted == QLatin1String("ctrl") || wanted == QLatin1String("control"))
        return tappix::keys::control;
    if (wanted == QLatin1String("alt"))
        return tappix::keys::option;
    for (tappix::KeyCode code = 0; code <= 127; ++code) {
        const auto name = tappix::keyName(code);
        if ((name &&
             QString::fromUtf8(name->data(), qsizetype(name->size())).toLower() == wanted) ||
            QString::fromStdString(tappix::KeyboardRecording::keyTitle(code)).toLower() == wanted)
            return code;
    }
    return std::nullopt;
}

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Whether two paths name the same directory (either may not exist yet).
bool sameDirectory(const QString& a, const QString& b) {
    return QDir::cleanPath(QDir(a).absolutePath()) == QDir::cleanPath(QDir(b).absolutePath());
}

int recordKit(const std::vector<std::string>& args) {
    QString directory, name, keepRecording;
    std::string keyList = "a,s,d,f,j,space,return,backspace,shift";
    int times = 5;
    int retakeRounds = 2;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const bool hasValue = i + 1 < args.size();
        // The next argument as a whole number from `min` to `max`, or false.
        const auto whole = [&](int min, int max, int& out) {
            double value = 0;
            if (!parseNumber(args[++i], min, max, value) || value != std::floor(value))
                return false;
            out = static_cast<int>(value);
            return true;
        };
        if (args[i] == "--retakes" && hasValue) {
            if (!whole(0, 5, retakeRounds))
                return usageError("--retakes needs a whole number from 0 to 5");
        } else if (args[i] == "--name" && hasValue) {
            name = QString::fromStdString(args[++i]);
        } else if (args[i] == "--keys" && hasValue) {
            keyList = args[++i];
        } else if (args[i] == "--times" && hasValue) {
            if (!whole(1, 50, times))
                return usageError("--times needs a whole number from 1 to 50");
        } else if (args[i] == "--keep-recording" && hasValue) {
            keepRecording = QString::fromStdString(args[++i]);
        } else if (directory.isEmpty() && args[i].rfind("--", 0) != 0) {
            directory = QString::fromStdString(args[i]);
        } else {
            return usageError("record does not know '" + args[i] + "'");
        }
    }
    if (tappix::SwitchDesigner::displayName(name).isEmpty())
        return usageError("record needs --name NAME, the kit's name");
    std::vector<tappix::KeyCode> asked;
    for (const QString& word : QString::fromStdString(keyList).split(QLatin1Char(','))) {
        const auto code = keyNamed(word.trimmed().toStdString());
        if (!code)
            return usageError("--keys: no key is called '" + word.trimmed().toStdString() + "'");
        asked.push_back(*code);
    }
    const QString userDirectory = tappix::SoundpackStore::defaultUserDirectory();
    if (directory.isEmpty())
        directory = userDirectory;

    // A kit directory that cannot take the kit is found out before any typing.
    if (!QDir().mkpath(directory) || !QFileInfo(directory).isWritable()) {
        std::fprintf(stderr, "tappix-kit: cannot write a kit into %s: %s\n", qPrintable(directory),
                     QFileInfo(directory).exists() ? "it is not writable" : "it cannot be created");
        return 1;
    }

    auto microphone = tappix::makeMicrophone();
    if (!microphone) {
        std::fprintf(stderr, "tappix-kit: this build has no sound server to record from\n");
        return 1;
    }

    // Every key that moves, at the time it moved, on the clock the recording is placed
    // on: a busy machine may hand a key over late, but its time stays where it was.
    std::mutex eventsMutex;
    std::vector<tappix::RecordedKeyEvent> events;
    tappix::KeyEventService capture(tappix::makeCaptureBackends());
    capture.setOnKeyEvent([&](tappix::KeyCode code, bool down, tappix::KeyTime at) {
        const double seconds = std::chrono::duration<double>(at.time_since_epoch()).count();
        std::lock_guard lock(eventsMutex);
        events.push_back({code, down, seconds});
    });
    const QuietTappix quiet;
    capture.start();
    if (capture.backend() == tappix::KeyEventService::Backend::stopped) {
        std::fprintf(stderr, "tappix-kit: cannot hear the keyboard:\n");
        for (const std::string& line : tappix::describeCapture())
            std::fprintf(stderr, "  %s\n", line.c_str());
        return 1;
    }
    std::string error;
    if (!microphone->start(error)) {
        std::fprintf(stderr, "tappix-kit: %s\n", error.c_str());
        return 1;
    }

    constexpr int kPollMs = 20;
    constexpr int kQuietStartMs = 1200;
    constexpr int kTailMs = 600;
    constexpr double kGiveUpSeconds = 30;
    const auto pressesOf = [&](tappix::KeyCode code) {
        std::lock_guard lock(eventsMutex);
        return std::count_if(events.begin(), events.end(),
                             [&](const auto& e) { return e.code == code && e.down; });
    };
    const auto lastEventAt = [&] {
        std::lock_guard lock(eventsMutex);
        return events.empty() ? monotonicSeconds() : events.back().seconds;
    };
    // Waits until `code` has been pressed `count` times in all; false when the
    // microphone broke off or nothing was typed for a while.
    const auto waitForPresses = [&](tappix::KeyCode code, long count) {
        const double asked = monotonicSeconds();
        while (pressesOf(code) < count) {
            if (!microphone->failure().empty())
                return false;
            if (monotonicSeconds() - std::max(asked, lastEventAt()) > kGiveUpSeconds) {
                error = "nothing was typed for " + std::to_string(int(kGiveUpSeconds)) + " seconds";
                return false;
            }
            QThread::msleep(kPollMs);
        }
        return true;
    };
    const auto abandon = [&](const std::string& why) {
        microphone->stop();
        capture.stop();
        std::fprintf(stderr, "tappix-kit: %s; no kit was made\n", why.c_str());
        return 1;
    };

    std::printf("Recording from \"%s\". Keep quiet for a moment while it hears the room...\n",
                microphone->name().c_str());
    std::fflush(stdout);
    QThread::msleep(kQuietStartMs);
    {
        std::lock_guard lock(eventsMutex);
        events.clear(); // keys typed before the prompt are not takes
    }
    std::printf("Type each key when asked, firmly and one at a time, letting it go before "
                "the next.\n");
    for (tappix::KeyCode code : asked) {
        std::printf("Press %s %d times\n", tappix::KeyboardRecording::keyTitle(code).c_str(),
                    times);
        std::fflush(stdout);
        if (!waitForPresses(code, pressesOf(code) + times))
            return abandon(microphone->failure().empty() ? error : microphone->failure());
    }

    // Cut what there is so far; keys that lost takes are asked for again, twice at
    // most. The microphone runs on meanwhile, so a retake adds to the same recording.
    const auto eventsSoFar = [&] {
        std::lock_guard lock(eventsMutex);
        return events;
    };
    for (int round = 0; round < retakeRounds; ++round) {
        QThread::msleep(kTailMs);
        if (!microphone->failure().empty())
            return abandon(microphone->failure());
        const tappix::Microphone::Recording sofar = microphone->snapshot();
        const auto check =
            tappix::KeyboardRecording::cut(sofar.samples, sofar.startSeconds, eventsSoFar());
        if (!check.error.empty() || check.retakes.empty())
            break;
        std::vector<tappix::KeyCode> again;
        for (const auto& take : check.takes)
            if (take.flaw != tappix::KeyboardRecording::Flaw::none &&
                take.flaw != tappix::KeyboardRecording::Flaw::unmatched &&
                std::find(again.begin(), again.end(), take.code) == again.end())
                again.push_back(take.code);
        for (const std::string& line : check.retakes)
            std::printf("%s\n", line.c_str());
        for (tappix::KeyCode code : again) {
            std::printf("Press %s %d times\n", tappix::KeyboardRecording::keyTitle(code).c_str(),
                        times);
            std::fflush(stdout);
            if (!waitForPresses(code, pressesOf(code) + times))
                return abandon(microphone->failure().empty() ? error : microphone->failure());
        }
    }
    QThread::msleep(kTailMs);
    const tappix::Microphone::Recording recording = microphone->stop();
    if (!recording.error.empty())
        return abandon(recording.error);
    const std::vector<tappix::RecordedKeyEvent> typed = eventsSoFar();
    const auto cut =
        tappix::KeyboardRecording::cut(recording.samples, recording.startSeconds, typed);
    capture.stop();
    if (!keepRecording.isEmpty()) {
        std::string failure;
        if (!tappix::writeWav(recording.samples, QFile::encodeName(keepRecording).toStdString(),
                              failure))
            std::fprintf(stderr, "tappix-kit: cannot keep the recording: %s\n", failure.c_str());
        // Beside it, where each take starts: seconds, key, press or release, and its flaw.
        QFile onsets(keepRecording + QStringLiteral(".onsets"));
        if (onsets.open(QIODevice::WriteOnly | QIODevice::Text))
            for (std::size_t t = 0; t < cut.takes.size(); ++t) {
                const auto& take = cut.takes[t];
                onsets.write(
                    QStringLiteral("%1\t%2\t%3\t%4\t%5\n")
                        .arg(take.onsetSeconds, 0, 'f', 5)
                        .arg(typed[t].seconds - recording.startSeconds, 0, 'f', 5)
                        .arg(QString::fromStdString(tappix::KeyboardRecording::keyTitle(take.code)))
                        .arg(take.down ? "press" : "release")
                        .arg(take.flaw == tappix::KeyboardRecording::Flaw::none ? "kept"
                             : take.flaw == tappix::KeyboardRecording::Flaw::unmatched
                                 ? "no key movement"
                                 : "dropped")
                        .toUtf8());
            }
    }
    std::printf("The sounds came %.1f ms after their keys (onsets within %.1f ms of that); "
                "background noise %.0f dBFS.\n",
                cut.offsetSeconds * 1000, cut.onsetSpreadSeconds * 1000, cut.noiseFloorDbfs);
    for (const std::string& line : cut.retakes)
        std::printf("%s\n", line.c_str());
    const tappix::KeyboardRecording::Kit kit = tappix::KeyboardRecording::makeKit(cut, name);
    if (!kit.error.empty()) {
        std::fprintf(stderr, "tappix-kit: %s; no kit was made\n", kit.error.c_str());
        return 1;
    }
    const tappix::SwitchDesigner writer(
        [](const std::vector<float>& samples, const QString& path, std::string& failure) {
            return tappix::writeWav(samples, QFile::encodeName(path).toStdString(), failure);
        });
    const auto saved = writer.saveWhole(kit.config, kit.files, directory);
    if (!saved.ok()) {
        std::fprintf(stderr, "tappix-kit: cannot write the kit: %s; nothing was changed\n",
                     saved.error.c_str());
        return 1;
    }
    std::printf("recorded \"%s\" as %s in %s: %zu sounds of %zu keys%s\n",
                kit.config.metadata.name.c_str(), kit.config.id.c_str(),
                qPrintable(saved.directory), kit.files.size(),
                kit.config.metadata.keys ? kit.config.metadata.keys->size() : 0,
                kit.config.metadata.supportsKeyUp ? ", with release sounds" : "");
    if (sameDirectory(directory, userDirectory))
        selectImportedKit(kit.config);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const std::string_view command = argc > 1 ? argv[1] : "";
    const std::vector<std::string> args(argv + std::min(argc, 2), argv + argc);
    if (command == "keys")
        return keys();
    if (command == "check")
        return check(args);
    if (command == "render")
        return render(args);
    if (command == "ding")
        return ding(args);
    if (command == "play")
        return play(args);
    if (command == "bundle")
        return bundle(args);
    if (command == "import")
        return importPack(args);
    if (command == "record")
        return recordKit(args);
    if (command == "help" || command == "-h" || command == "--help") {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (command.empty())
        std::fputs("tappix-kit: no command given\n\n", stderr);
    else
        std::fprintf(stderr, "tappix-kit: unknown command '%s'\n\n", argv[1]);
    std::fputs(kHelp, stderr);
    return 2;
}

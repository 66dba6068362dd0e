#pragma once

#include "core/sample_decoder.h"
#include "input/key_group.h"
#include "kits/pack_source.h"
#include "kits/soundpack_config.h"

#include <QString>
#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// What importing a pack made, or why it refused.
struct PackImportResult {
    /// The new kit's manifest, when the import succeeded.
    std::optional<SoundpackConfig> config;
    /// The new kit's directory, when the import succeeded.
    QString directory;
    /// Why the pack was refused (empty on success).
    std::string error;
    /// One line for each part of the pack that could not be imported.
    std::vector<std::string> problems;
    /// Things worth knowing that lose nothing the pack meant.
    std::vector<std::string> notes;
    /// Whether an earlier import of the same id was replaced.
    bool replaced = false;

    /// Whether a kit was made.
    bool ok() const { return config.has_value(); }
};

/// Turns a keyboard-sound pack made for another program (see `SourcePackConfig`)
/// into a Tappix kit in the user kit directory: every slice or file becomes a
/// 48 kHz WAV, each key code is mapped to Tappix's key name, and the group sounds
/// ("alpha", "space", "enter", "backspace", "modifier", "default") are filled so
/// every key sounds. Whatever cannot be used is reported one line per problem;
/// nothing is ever written outside the kit directory: the kit is built in a hidden
/// staging directory there and moved into place whole.
///
/// Any thread (the user interface calls it off the main thread), one import at a
/// time per importer, since it shares the decoder.
class PackImporter {
public:
    /// Maps a pack's key code (PC scan code, set 1) to Tappix's key code, or none.
    using KeyTranslator = std::function<std::optional<KeyCode>(std::int64_t)>;
    /// Writes mono 48 kHz samples as an audio file; false with a reason on failure.
    using SampleWriter =
        std::function<bool(const std::vector<float>&, const QString& path, std::string& error)>;

    /// Largest audio file read from a pack.
    static constexpr qint64 kMaxFileBytes = 64LL * 1024 * 1024;
    /// Most bytes read from one pack in all; a pack past it is an archive bomb or a mistake.
    static constexpr qint64 kMaxTotalBytes = 512LL * 1024 * 1024;
    /// Largest config.json read.
    static constexpr qint64 kMaxConfigBytes = 4LL * 1024 * 1024;
    /// Most variants a group sound pools from the keys of its group.
    static constexpr std::size_t kMaxPooledVariants = 8;
    /// The fade in and out at each edge of a slice, so cuts never click.
    static constexpr double kFadeMs = 2.0;

    /// How one import runs.
    struct Options {
        /// The user kit directory the kit is written into (created when missing).
        QString kitDirectory;
        /// The kit id; empty for "imported-" and the slug of the pack's name.
        std::string id;
        /// Ids the new kit may not take (the bundled kits', which would hide it).
        std::vector<std::string> reservedIds;
        /// Set from another thread to stop between files; the kit is then not made.
        const std::atomic<bool>* cancel = nullptr;
        /// Limits, lowered by tests.
        qint64 maxFileBytes = kMaxFileBytes;
        qint64 maxTotalBytes = kMaxTotalBytes;
    };

    /// An importer decoding with `decoder`, writing with `writer`, mapping codes with `translate`.
    PackImporter(SampleDecoder& decoder, SampleWriter writer, KeyTranslator translate);

    /// Imports the pack in `source`.
    PackImportResult importPack(PackSource& source, const Options& options);

    /// "imported-" and a slug of `name` (lower-case letters, digits and dashes).
    static std::string kitIdFor(const std::string& name);

    /// Whether `id` can name a kit directory: 1 to 64 of a-z, 0-9, ".", "_" and "-",
    /// starting with a letter or digit.
    static bool isValidKitId(const std::string& id);

private:
    SampleDecoder& decoder_;
    SampleWriter writer_;
    KeyTranslator translate_;
};

} // namespace tappix

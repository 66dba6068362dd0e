#pragma once

#include <QByteArray>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tappix {

/// The `config.json` of a keyboard-sound pack made for another program, as the pack
/// importer reads it: a pack id and name, one audio file cut into slices per key
/// ("single") or one file per key ("multi"), and optional release sounds.
/// Decoding is forgiving: what cannot be used is skipped with one line per problem;
/// only a file that is not a pack at all is refused. Any thread.
struct SourcePackConfig {
    /// How `defines` names the sounds.
    enum class Layout {
        /// One audio file; each key names a slice of it.
        single,
        /// Each key names a file of its own (or none).
        multi,
    };

    /// A slice of the pack's one audio file, in milliseconds.
    struct Slice {
        double startMs = 0;
        double durationMs = 0;

        friend bool operator==(const Slice&, const Slice&) = default;
    };

    /// One entry of `defines`: the sound of one key going down or up.
    struct Define {
        /// The key code as the pack numbers it (PC scan code, set 1).
        std::int64_t code = 0;
        /// Whether this is the release sound ("30-up").
        bool up = false;
        /// The slice, for single packs.
        Slice slice;
        /// The file names, for multi packs (several when the name held a range).
        std::vector<std::string> files;

        friend bool operator==(const Define&, const Define&) = default;
    };

    /// The pack's own identifier (may be empty).
    std::string id;
    /// Display name; the id or "Imported pack" when the pack has none.
    std::string name;
    /// Who made it, when the pack says.
    std::optional<std::string> author;
    /// Layout of `defines`.
    Layout layout = Layout::single;
    /// Format version: 1, or 2 for packs with `soundup` and release entries.
    int version = 1;
    /// single: the audio file every slice is cut from. multi: the press sounds of
    /// keys without a define of their own (usually version 2 only).
    std::vector<std::string> sound;
    /// single: the file release slices are cut from (else `sound`). multi: the
    /// release sounds of keys without a release define.
    std::vector<std::string> soundUp;
    /// Every usable define, in the order of the file.
    std::vector<Define> defines;

    /// Most variants one name's range may produce ("R{0-4}" gives five).
    static constexpr int kMaxRangeVariants = 64;
    /// Most defines read; the rest are reported once and skipped.
    static constexpr std::size_t kMaxDefines = 4096;

    /// Decodes `json`. None, with the reason in `error`, when it is not a pack's
    /// config; otherwise the usable parts, with one line per skipped part appended
    /// to `problems`.
    static std::optional<SourcePackConfig> decode(const QByteArray& json, std::string& error,
                                                  std::vector<std::string>& problems);

    /// Expands one range in a file name: "press/R{0-2}.mp3" gives R0, R1 and R2 (a
    /// descending range counts down; "{07-09}" keeps the zero padding). A name
    /// without braces is itself. Empty, with a reason in `error`, when the range is
    /// malformed or wider than `kMaxRangeVariants`.
    static std::vector<std::string> expandRange(const std::string& name, std::string& error);

    friend bool operator==(const SourcePackConfig&, const SourcePackConfig&) = default;
};

} // namespace tappix

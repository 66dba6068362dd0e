#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace tappix {

/// A key code as capture delivers it: virtual key codes 0 to 127, media keys 1000 to 1022.
using KeyCode = std::int64_t;

/// The region of the keyboard a key belongs to; mixes assign kits by region.
/// Behaves like an enumeration (`KeyGroup::enter`, `switch`, `==`) with the
/// region lookup and strict raw-value decoding attached.
class KeyGroup {
public:
    /// The regions, in the order in which they are listed everywhere.
    enum Value : std::uint8_t {
        letters,
        space,
        enter,
        backspace,
        modifier,
        arrows,
        functionRow,
        numberRow,
    };

    /// Number of regions.
    static constexpr std::size_t kCount = 8;

    /// Every region in declaration order.
    static constexpr std::array<Value, kCount> allCases{letters,  space,  enter,       backspace,
                                                        modifier, arrows, functionRow, numberRow};

    /// Wraps a region value.
    constexpr KeyGroup(Value value) : value_(value) {}

    /// The region value, so a `KeyGroup` works in `switch` and comparisons.
    constexpr operator Value() const { return value_; }

    /// The region that answers a key code; total over every code.
    static KeyGroup of(KeyCode code);

    /// Strict decoding: only the eight exact raw values give a region ("Letters" does not).
    static std::optional<KeyGroup> fromRawValue(std::string_view raw);

    /// The stored form: "letters", "space", "enter", "backspace", "modifier",
    /// "arrows", "functionRow" or "numberRow".
    std::string_view rawValue() const;

private:
    Value value_;
};

/// The names to try in a kit, in order, for one key (at most four, no allocation).
struct SoundCandidates {
    /// The names; only the first `count` are used.
    std::array<std::string_view, 4> names{};
    /// How many names are set.
    std::size_t count = 0;

    /// Iteration over the set names.
    const std::string_view* begin() const { return names.data(); }
    /// End of the set names.
    const std::string_view* end() const { return names.data() + count; }
};

/// Five-way classification used by the key-cast overlay and the engine's modifier rule:
/// only `letters`, `space`, `enter`, `backspace` or `modifier`.
KeyGroup coarseGroup(KeyCode code);

/// The name by which kit manifests refer to a key, or none.
std::optional<std::string_view> keyName(KeyCode code);

/// The key's column on a 14-column keyboard (0 far left, 13 far right), or none.
std::optional<int> keyColumn(KeyCode code);

/// The sample names to try for a key: its name, its category word, "default", "alpha".
SoundCandidates soundCandidates(KeyCode code);

/// Stereo position in [-0.35, 0.35] from the key's column; 0 for keys without one.
float panPosition(KeyCode code);

/// Whether a key-down counts as a typed character for the statistics.
bool isTypingKey(KeyCode code);

/// The key-cap text the key-cast overlay shows (UTF-8), or none.
std::optional<std::string_view> keyLabel(KeyCode code);

} // namespace tappix

/// Hashing by region value, so `KeyGroup` can key unordered containers.
template <> struct std::hash<tappix::KeyGroup> {
    std::size_t operator()(tappix::KeyGroup group) const noexcept {
        return static_cast<std::size_t>(static_cast<tappix::KeyGroup::Value>(group));
    }
};

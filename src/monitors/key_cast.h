#pragma once

#include "core/clock.h"
#include "core/scheduler.h"
#include "input/key_group.h"

#include <QObject>
#include <QString>
#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

namespace tappix {

/// One chip of the key-cast overlay. A combination has the held modifiers' symbols in
/// `modifiers` (drawn in the accent) and the key's label in `key`; a plain key has only
/// `key`; a modifier pressed alone has only its own symbol, in `modifiers`.
struct KeyCastChip {
    /// Stays the same while the chip lives, so a view can animate it; never reused.
    std::uint64_t id = 0;
    /// Modifier symbols in the order ⌃ ⌥ ⇧ ⌘ fn ⇪, possibly empty.
    QString modifiers;
    /// The key's label, empty for a modifier pressed alone.
    QString key;
    /// Whether the chip shows a key with modifiers held.
    bool isShortcut = false;
    /// When the chip goes: its creation plus `KeyCast::kLifetime`.
    Clock::Duration expires{};

    /// The whole text, as read aloud and compared in tests.
    QString text() const { return modifiers + key; }
};

/// Turns key presses into the chips the key-cast overlay shows. A modifier pressed alone
/// is a chip of its own at once; any other key is one chip, prefixed by the modifiers held
/// with it in the fixed order ⌃ ⌥ ⇧ ⌘ fn ⇪ whatever the order they went down in. Letters
/// are not merged into words, so every chip stands for one key. Each chip lives
/// `kLifetime` from its creation; at most `kMaxChips` show, the oldest going first. With
/// shortcuts only, modifiers alone and keys without a modifier show nothing, while a key
/// with any modifier held, Shift included, still does. Main thread only.
class KeyCast final : public QObject {
    Q_OBJECT
public:
    /// How long a chip shows.
    static constexpr std::chrono::milliseconds kLifetime{1400};
    /// The most chips at once.
    static constexpr std::size_t kMaxChips = 6;

    /// Chips timed by `clock`, expired on `scheduler`. Main thread.
    KeyCast(const Clock& clock, Scheduler& scheduler, QObject* parent = nullptr);
    ~KeyCast() override;

    /// Called after every change of `chips`. Main thread.
    void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

    /// Shows only keys pressed with a modifier held. Main thread.
    void setShortcutsOnly(bool shortcutsOnly);

    /// A key went down (`down`) or up. Main thread.
    void key(KeyCode code, bool down);

    /// Forgets every chip and held modifier (the overlay was turned off). Main thread.
    void clear();

    /// The chips, oldest first. Main thread.
    const std::vector<KeyCastChip>& chips() const { return chips_; }

    /// The scheduler the chips expire on, for the view's own short waits. Main thread.
    Scheduler& scheduler() { return scheduler_; }

private:
    QString heldSymbols() const;
    void add(KeyCastChip chip);
    void expire();
    void reschedule();
    void changed();

    const Clock& clock_;
    Scheduler& scheduler_;
    std::function<void()> onChange_;
    bool shortcutsOnly_ = false;
    std::vector<KeyCastChip> chips_;
    std::uint64_t nextId_ = 1;
    // One task, due when the oldest chip goes.
    Scheduler::TaskId timer_ = 0;
    Clock::Duration timerDue_{};
    // Modifier keys held down, in the order they went down, each once.
    std::vector<KeyCode> heldModifiers_;
};

} // namespace tappix

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

/// One chip of the key-cast overlay: the modifiers held (drawn in the accent) and the
/// key's own label. A modifier pressed alone has only `modifiers`.
struct KeyCastChip {
    /// Stays the same while the chip lives, so a view can animate it; never reused.
    std::uint64_t id = 0;
    /// Modifier symbols in the order ⌃ ⌥ ⇧ ⌘, possibly empty.
    QString modifiers;
    /// The key's label, empty for a chip of modifiers alone.
    QString key;
    /// Whether the chip follows modifiers still held down (it has no end yet).
    bool held = false;
    /// When the chip goes; meaningless while `held`.
    Clock::Duration expires{};

    /// The whole text, as read aloud and compared in tests.
    QString text() const { return modifiers + key; }
};

/// Turns key presses into the chips the key-cast overlay shows. Each key-down is its own
/// chip, prefixed by the modifiers held (Ctrl ⌃, Alt ⌥, Shift ⇧, Super ⌘); letters are
/// not merged into words, so every chip stands for one key and the count shows the pace.
/// While modifiers are held and no key has gone down with them yet, a chip shows them;
/// released alone it stays as a chip of its own. A chip lives `kLifetime` from its key
/// (a chip of modifiers alone, from their release); at most `kMaxChips` show, the oldest
/// going first. With shortcuts only, keys without Ctrl, Alt or Super held show nothing.
/// Main thread only.
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

    /// Shows only combinations with Ctrl, Alt or Super. Main thread.
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
    static QString symbols(unsigned modifiers);
    unsigned held() const;
    bool shows(unsigned modifiers) const;
    void modifierDown();
    void modifierUp();
    void keyDown(KeyCode code);
    void push(KeyCastChip chip);
    void expire();
    void reschedule();
    void changed();

    const Clock& clock_;
    Scheduler& scheduler_;
    std::function<void()> onChange_;
    bool shortcutsOnly_ = false;
    std::vector<KeyCastChip> chips_;
    std::uint64_t nextId_ = 1;
    Scheduler::TaskId timer_ = 0;
    Clock::Duration timerDue_{};

    // Modifier keys held down, by side, and what they mean together.
    std::vector<KeyCode> heldKeys_;
    // Every modifier held since the first went down, until all are up.
    unsigned peak_ = 0;
    // A key went down with the held modifiers: their release shows nothing.
    bool used_ = false;
};

} // namespace tappix

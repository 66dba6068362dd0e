#include "monitors/key_cast.h"

#include "input/key_codes.h"
#include "input/shortcut.h"

#include <algorithm>

namespace tappix {

KeyCast::KeyCast(const Clock& clock, Scheduler& scheduler, QObject* parent)
    : QObject(parent), clock_(clock), scheduler_(scheduler) {}

KeyCast::~KeyCast() {
    if (timer_)
        scheduler_.cancel(timer_);
}

QString KeyCast::symbols(unsigned modifiers) {
    // The order printed on menus and key caps alike.
    QString text;
    if (modifiers & Shortcut::ctrl)
        text += QChar(0x2303);
    if (modifiers & Shortcut::alt)
        text += QChar(0x2325);
    if (modifiers & Shortcut::shift)
        text += QChar(0x21E7);
    if (modifiers & Shortcut::super)
        text += QChar(0x2318);
    return text;
}

unsigned KeyCast::held() const {
    unsigned modifiers = 0;
    for (KeyCode code : heldKeys_)
        modifiers |= Shortcut::modifierOf(code);
    return modifiers;
}

bool KeyCast::shows(unsigned modifiers) const {
    return !shortcutsOnly_ || (modifiers & (Shortcut::ctrl | Shortcut::alt | Shortcut::super)) != 0;
}

void KeyCast::setShortcutsOnly(bool shortcutsOnly) {
    shortcutsOnly_ = shortcutsOnly;
}

void KeyCast::key(KeyCode code, bool down) {
    if (Shortcut::modifierOf(code) == 0) {
        if (down)
            keyDown(code);
        return;
    }
    const auto found = std::find(heldKeys_.begin(), heldKeys_.end(), code);
    if (down && found == heldKeys_.end()) {
        heldKeys_.push_back(code);
        modifierDown();
    } else if (!down && found != heldKeys_.end()) {
        heldKeys_.erase(found);
        modifierUp();
    }
}

void KeyCast::modifierDown() {
    // A new modifier starts a new combination, shown until a key joins it.
    peak_ |= held();
    used_ = false;
    const auto heldChip =
        std::find_if(chips_.begin(), chips_.end(), [](const KeyCastChip& c) { return c.held; });
    if (!shows(held())) {
        if (heldChip != chips_.end()) {
            chips_.erase(heldChip);
            changed();
        }
        return;
    }
    if (heldChip != chips_.end()) {
        heldChip->modifiers = symbols(held());
        changed();
        return;
    }
    push({.id = 0, .modifiers = symbols(held()), .key = {}, .held = true, .expires = {}});
}

void KeyCast::modifierUp() {
    const auto heldChip =
        std::find_if(chips_.begin(), chips_.end(), [](const KeyCastChip& c) { return c.held; });
    if (!heldKeys_.empty()) {
        if (heldChip != chips_.end() && shows(held())) {
            heldChip->modifiers = symbols(held());
            changed();
        }
        return;
    }
    // All up: modifiers pressed alone leave a chip of every one that was down.
    const unsigned peak = std::exchange(peak_, 0);
    const bool used = std::exchange(used_, false);
    if (used || !shows(peak)) {
        if (heldChip != chips_.end()) {
            chips_.erase(heldChip);
            changed();
        }
        return;
    }
    const Clock::Duration expires = clock_.now() + kLifetime;
    if (heldChip != chips_.end()) {
        heldChip->modifiers = symbols(peak);
        heldChip->held = false;
        heldChip->expires = expires;
        reschedule();
        changed();
        return;
    }
    push({.id = 0, .modifiers = symbols(peak), .key = {}, .held = false, .expires = expires});
}

void KeyCast::keyDown(KeyCode code) {
    const unsigned modifiers = held();
    if (modifiers != 0)
        used_ = true;
    const auto heldChip =
        std::find_if(chips_.begin(), chips_.end(), [](const KeyCastChip& c) { return c.held; });
    const auto label = keyLabel(code);
    if (!shows(modifiers) || !label) {
        if (heldChip != chips_.end()) {
            chips_.erase(heldChip);
            changed();
        }
        return;
    }
    KeyCastChip chip{.id = 0,
                     .modifiers = symbols(modifiers),
                     .key = QString::fromUtf8(label->data(), qsizetype(label->size())),
                     .held = false,
                     .expires = clock_.now() + kLifetime};
    if (heldChip != chips_.end()) {
        // The combination takes the place of the modifiers that waited for it.
        chip.id = heldChip->id;
        *heldChip = chip;
        reschedule();
        changed();
        return;
    }
    push(std::move(chip));
}

void KeyCast::push(KeyCastChip chip) {
    chip.id = nextId_++;
    chips_.push_back(std::move(chip));
    if (chips_.size() > kMaxChips)
        chips_.erase(chips_.begin(), chips_.end() - kMaxChips);
    reschedule();
    changed();
}

void KeyCast::clear() {
    heldKeys_.clear();
    peak_ = 0;
    used_ = false;
    if (timer_) {
        scheduler_.cancel(timer_);
        timer_ = 0;
    }
    if (!chips_.empty()) {
        chips_.clear();
        changed();
    }
}

void KeyCast::expire() {
    timer_ = 0;
    const Clock::Duration now = clock_.now();
    const auto gone =
        std::erase_if(chips_, [now](const KeyCastChip& c) { return !c.held && c.expires <= now; });
    reschedule();
    if (gone > 0)
        changed();
}

void KeyCast::reschedule() {
    // One task, due when the oldest chip goes.
    std::optional<Clock::Duration> next;
    for (const KeyCastChip& chip : chips_) {
        if (!chip.held && (!next || chip.expires < *next))
            next = chip.expires;
    }
    if (timer_ && next && *next == timerDue_)
        return;
    if (timer_) {
        scheduler_.cancel(timer_);
        timer_ = 0;
    }
    if (!next)
        return;
    timerDue_ = *next;
    const auto delay = std::max(std::chrono::milliseconds(0),
                                std::chrono::ceil<std::chrono::milliseconds>(*next - clock_.now()));
    timer_ = scheduler_.schedule(delay, [this] { expire(); });
}

void KeyCast::changed() {
    if (onChange_)
        onChange_();
}

} // namespace tappix

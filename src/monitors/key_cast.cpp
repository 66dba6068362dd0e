#include "monitors/key_cast.h"

#include <algorithm>
#include <array>
#include <optional>

namespace tappix {

namespace {

// The symbols that count as modifiers, in the order a combination shows them.
const std::array<QString, 6> kModifierOrder{QStringLiteral("⌃"),  QStringLiteral("⌥"),
                                            QStringLiteral("⇧"),  QStringLiteral("⌘"),
                                            QStringLiteral("fn"), QStringLiteral("⇪")};

std::optional<QString> label(KeyCode code) {
    const auto text = keyLabel(code);
    if (!text)
        return std::nullopt;
    return QString::fromUtf8(text->data(), qsizetype(text->size()));
}

} // namespace

KeyCast::KeyCast(const Clock& clock, Scheduler& scheduler, QObject* parent)
    : QObject(parent), clock_(clock), scheduler_(scheduler) {}

KeyCast::~KeyCast() {
    if (timer_)
        scheduler_.cancel(timer_);
}

void KeyCast::setShortcutsOnly(bool shortcutsOnly) {
    shortcutsOnly_ = shortcutsOnly;
}

void KeyCast::key(KeyCode code, bool down) {
    if (coarseGroup(code) == KeyGroup::modifier) {
        if (!down) {
            // Also when its key-down was never seen.
            std::erase(heldModifiers_, code);
            return;
        }
        if (std::find(heldModifiers_.begin(), heldModifiers_.end(), code) == heldModifiers_.end())
            heldModifiers_.push_back(code);
        if (shortcutsOnly_)
            return;
        if (const auto symbol = label(code))
            add({.id = 0, .modifiers = *symbol, .key = {}, .isShortcut = false, .expires = {}});
        return;
    }
    if (!down)
        return;
    const auto keyText = label(code);
    if (!keyText)
        return;
    const QString modifiers = heldSymbols();
    if (modifiers.isEmpty() && shortcutsOnly_)
        return;
    add({.id = 0,
         .modifiers = modifiers,
         .key = *keyText,
         .isShortcut = !modifiers.isEmpty(),
         .expires = {}});
}

QString KeyCast::heldSymbols() const {
    // Left and right keys of a kind give one symbol.
    QString text;
    for (const QString& symbol : kModifierOrder) {
        const bool held = std::any_of(heldModifiers_.begin(), heldModifiers_.end(),
                                      [&symbol](KeyCode code) { return label(code) == symbol; });
        if (held)
            text += symbol;
    }
    return text;
}

void KeyCast::add(KeyCastChip chip) {
    chip.id = nextId_++;
    chip.expires = clock_.now() + kLifetime;
    chips_.push_back(std::move(chip));
    if (chips_.size() > kMaxChips)
        chips_.erase(chips_.begin(), chips_.end() - kMaxChips);
    reschedule();
    changed();
}

void KeyCast::clear() {
    heldModifiers_.clear();
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
        std::erase_if(chips_, [now](const KeyCastChip& c) { return c.expires <= now; });
    reschedule();
    if (gone > 0)
        changed();
}

void KeyCast::reschedule() {
    // Chips join at the end and all live equally long, so the oldest goes first.
    if (timer_ && !chips_.empty() && chips_.front().expires == timerDue_)
        return;
    if (timer_) {
        scheduler_.cancel(timer_);
        timer_ = 0;
    }
    if (chips_.empty())
        return;
    timerDue_ = chips_.front().expires;
    const auto delay =
        std::max(std::chrono::milliseconds(0),
                 std::chrono::ceil<std::chrono::milliseconds>(timerDue_ - clock_.now()));
    timer_ = scheduler_.schedule(delay, [this] { expire(); });
}

void KeyCast::changed() {
    if (onChange_)
        onChange_();
}

} // namespace tappix

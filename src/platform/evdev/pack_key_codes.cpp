#include "platform/evdev/pack_key_codes.h"

#include <linux/input-event-codes.h>
#include <utility>

namespace tappix::evdev {
namespace {

// Set-1 scan codes after an E0 prefix.
constexpr std::pair<std::uint8_t, std::uint16_t> kExtended[] = {
    {0x10, KEY_PREVIOUSSONG}, {0x19, KEY_NEXTSONG},  {0x1C, KEY_KPENTER},    {0x1D, KEY_RIGHTCTRL},
    {0x20, KEY_MUTE},         {0x22, KEY_PLAYPAUSE}, {0x2E, KEY_VOLUMEDOWN}, {0x30, KEY_VOLUMEUP},
    {0x35, KEY_KPSLASH},      {0x37, KEY_SYSRQ},     {0x38, KEY_RIGHTALT},   {0x45, KEY_PAUSE},
    {0x47, KEY_HOME},         {0x48, KEY_UP},        {0x49, KEY_PAGEUP},     {0x4B, KEY_LEFT},
    {0x4D, KEY_RIGHT},        {0x4F, KEY_END},       {0x50, KEY_DOWN},       {0x51, KEY_PAGEDOWN},
    {0x52, KEY_INSERT},       {0x53, KEY_DELETE},    {0x5B, KEY_LEFTMETA},   {0x5C, KEY_RIGHTMETA},
    {0x5D, KEY_COMPOSE},
};

// The keypad's keys as navigation keys (Num Lock off): 7 Home, 8 Up, 9 Page Up, 4 Left,
// 6 Right, 1 End, 2 Down, 3 Page Down, 0 Insert, the decimal point Delete; the keys with
// no second meaning stay themselves.
constexpr std::pair<std::uint8_t, std::uint16_t> kKeypadNavigation[] = {
    {0x47, KEY_HOME},   {0x48, KEY_UP},   {0x49, KEY_PAGEUP},   {0x4A, KEY_KPMINUS},
    {0x4B, KEY_LEFT},   {0x4C, KEY_KP5},  {0x4D, KEY_RIGHT},    {0x4E, KEY_KPPLUS},
    {0x4F, KEY_END},    {0x50, KEY_DOWN}, {0x51, KEY_PAGEDOWN}, {0x52, KEY_INSERT},
    {0x53, KEY_DELETE},
};

constexpr std::int64_t kExtendedBase = 0x0E00, kArrowBase = 0xE000, kKeypadNavigationBase = 0xEE00;

template <std::size_t N>
std::optional<std::uint16_t> lookUp(const std::pair<std::uint8_t, std::uint16_t> (&table)[N],
                                    std::int64_t code) {
    for (const auto& [scan, key] : table)
        if (scan == code)
            return key;
    return std::nullopt;
}

} // namespace

std::optional<std::uint16_t> linuxCodeForPackKey(std::int64_t packCode) {
    // 84 and 85 are unused in set 1; 86 is the ISO key beside left Shift, as in Linux.
    if (packCode >= KEY_ESC && packCode <= KEY_F12 && packCode != 84 && packCode != 85)
        return static_cast<std::uint16_t>(packCode);
    if (packCode > kExtendedBase && packCode <= kExtendedBase + 0xFF)
        return lookUp(kExtended, packCode - kExtendedBase);
    if (packCode > kArrowBase && packCode <= kArrowBase + 0xFF)
        return lookUp(kExtended, packCode - kArrowBase);
    if (packCode > kKeypadNavigationBase && packCode <= kKeypadNavigationBase + 0xFF)
        return lookUp(kKeypadNavigation, packCode - kKeypadNavigationBase);
    return std::nullopt;
}

} // namespace tappix::evdev

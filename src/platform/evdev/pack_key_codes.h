#pragma once

#include <cstdint>
#include <optional>

namespace tappix::evdev {

/// The Linux input key code for a key code as keyboard-sound packs number keys: PC
/// scan codes (set 1) where 1 to 88 equal the Linux codes, E0-prefixed keys as
/// 0x0E00 plus the code (3612 keypad Enter), the same keys as 0xE000 plus the code
/// (57416 Up), and the keypad's navigation keys with Num Lock off as 0xEE00 plus the
/// code (60999 Home). None for codes that name no key.
std::optional<std::uint16_t> linuxCodeForPackKey(std::int64_t packCode);

} // namespace tappix::evdev

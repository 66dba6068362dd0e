#pragma once

#include "input/key_group.h"

namespace tappix::keys {

// The virtual key codes every table, the engine, the statistics and the shortcut use.
// Capture backends translate into these at their boundary; nothing else sees a
// platform code.

// Letters.
inline constexpr KeyCode a = 0, s = 1, d = 2, f = 3, h = 4, g = 5, z = 6, x = 7, c = 8, v = 9,
                         b = 11, q = 12, w = 13, e = 14, r = 15, y = 16, t = 17, o = 31, u = 32,
                         i = 34, p = 35, l = 37, j = 38, k = 40, n = 45, m = 46;

// Number row.
inline constexpr KeyCode digit1 = 18, digit2 = 19, digit3 = 20, digit4 = 21, digit5 = 23,
                         digit6 = 22, digit7 = 26, digit8 = 28, digit9 = 25, digit0 = 29,
                         minus = 27, equal = 24;

// Punctuation.
inline constexpr KeyCode rightBracket = 30, leftBracket = 33, quote = 39, semicolon = 41,
                         backslash = 42, comma = 43, slash = 44, period = 47, grave = 50,
                         isoSection = 10;

// Editing and whitespace.
inline constexpr KeyCode returnKey = 36, tab = 48, space = 49, backspace = 51, escape = 53,
                         forwardDelete = 117, help = 114;

// Modifiers.
inline constexpr KeyCode rightCommand = 54, command = 55, shift = 56, capsLock = 57, option = 58,
                         control = 59, rightShift = 60, rightOption = 61, rightControl = 62,
                         function = 63;

// Function row.
inline constexpr KeyCode f1 = 122, f2 = 120, f3 = 99, f4 = 118, f5 = 96, f6 = 97, f7 = 98, f8 = 100,
                         f9 = 101, f10 = 109, f11 = 103, f12 = 111, f13 = 105, f14 = 107, f15 = 113,
                         f16 = 106, f17 = 64, f18 = 79, f19 = 80, f20 = 90;

// Navigation.
inline constexpr KeyCode home = 115, pageUp = 116, end = 119, pageDown = 121, leftArrow = 123,
                         rightArrow = 124, downArrow = 125, upArrow = 126, menu = 110;

// Keypad.
inline constexpr KeyCode keypad0 = 82, keypad1 = 83, keypad2 = 84, keypad3 = 85, keypad4 = 86,
                         keypad5 = 87, keypad6 = 88, keypad7 = 89, keypad8 = 91, keypad9 = 92,
                         keypadDecimal = 65, keypadMultiply = 67, keypadPlus = 69, keypadClear = 71,
                         keypadDivide = 75, keypadEnter = 76, keypadMinus = 78, keypadEquals = 81;

// Media keys: 1000 plus the system-defined key type.
inline constexpr KeyCode mediaBase = 1000, volumeUp = 1000, volumeDown = 1001, brightnessUp = 1002,
                         brightnessDown = 1003, mute = 1007, play = 1016, next = 1017,
                         previous = 1018, fastForward = 1019, rewind = 1020, illuminationUp = 1021,
                         illuminationDown = 1022, mediaLast = 1022;

/// Whether the code is one of the ten modifier keys (both sides, Caps Lock, Fn).
constexpr bool isModifier(KeyCode code) {
    return code >= rightCommand && code <= function;
}

/// Whether the code is a media key.
constexpr bool isMedia(KeyCode code) {
    return code >= mediaBase && code <= mediaLast;
}

} // namespace tappix::keys

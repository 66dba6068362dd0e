#pragma once

#include "input/capture_source.h"
#include "input/key_group.h"
#include "input/keyboard_access.h"
#include "kits/pack_importer.h"

#include <QString>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tappix {

class AudioDeviceManager;
class AudioPlayer;
class Clock;
class FocusSource;
class KeyCast;
class Microphone;
class Scheduler;
class SettingsStore;
class SoundEngine;
class SoundpackStore;
class ThemeStore;
class TypingMonitor;
class UpdateChecker;

/// The services the views show and change, handed over as they are, and the few things
/// the views ask of the platform, as calls. Null or empty parts are absent (tests).
struct ShellServices {
    SettingsStore& settings;
    ThemeStore& themes;
    SoundpackStore& packs;
    SoundEngine* engine = nullptr;
    TypingMonitor& typing;
    AudioPlayer* player = nullptr;
    AudioDeviceManager* devices = nullptr;
    /// The key-cast chips the overlay shows; no overlay without.
    KeyCast* keyCast = nullptr;
    /// Which window is in front, for the window sleep triggers; they show as unavailable
    /// without.
    FocusSource* focus = nullptr;
    /// Whether the desktop starts Tappix at login.
    std::function<bool()> launchesAtLogin = {};
    /// Starts Tappix at login, or stops doing so; false when the file system refused.
    std::function<bool(bool)> setLaunchAtLogin = {};
    /// Asks the release feed whether a newer version exists; no update checks without.
    UpdateChecker* updates = nullptr;
    /// Shows a notification so the user sees what Tappix's look like.
    std::function<void()> sendTestNotification = {};
    /// Holds the sounds shortcut back (true) while a new one is being recorded.
    std::function<void(bool)> pauseShortcut = {};
    /// Writes mono 48 kHz samples as a 16-bit PCM WAV file; false with the system's
    /// reason. Any thread (kits designed in the views are written off the main thread).
    std::function<bool(const std::vector<float>&, const QString& path, std::string& error)>
        writeSamples = {};
    /// Whether the clear parts of a window show what lies below (a compositor runs);
    /// assumed so when absent.
    std::function<bool()> windowsDrawClear = {};
    /// Makes a recording from the default microphone; null when none can be had.
    std::function<std::unique_ptr<Microphone>()> makeMicrophone = {};
    /// Sends every key that moves to the given callback (on the key queue) instead of
    /// the sound engine, so Tappix is quiet while a keyboard is recorded; an empty
    /// callback gives the keys back.
    std::function<void(std::function<void(KeyCode, bool, KeyTime)>)> recordKeys = {};
    /// Imports a keyboard-sound pack made for another program (a folder or a .zip) as a
    /// kit in the user kit directory. Any thread (the Sound page imports off the main thread).
    std::function<PackImportResult(const QString& path, const PackImporter::Options& options)>
        importPack = {};
    /// Whether keys can be captured now (the first-run window's steps).
    std::function<bool()> captureIsPossible = {};
    /// Whether the user may read the keyboards, and which group would let them.
    std::function<KeyboardAccess()> keyboardAccess = {};
    /// Whether the system can be asked to add the user to a group.
    std::function<bool()> canAskToJoin = {};
    /// Asks the system to add the user to a group; false when it cannot be asked now.
    std::function<bool(const QString& group, std::function<void(GroupJoinResult)> done)> askToJoin =
        {};
    /// Shows a file selected in the desktop's file manager, or calls `otherwise`.
    std::function<void(const QString& path, std::function<void()> otherwise)> showFile = {};
    /// The monotonic clock key events are stamped with; the steady clock when null.
    const Clock* clock = nullptr;
    /// Timers for the views' models; the Qt event loop's when null.
    Scheduler* scheduler = nullptr;
};

} // namespace tappix

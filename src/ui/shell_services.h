#pragma once

#include "kits/pack_importer.h"

#include <QString>
#include <functional>
#include <string>
#include <vector>

namespace tappix {

class AudioDeviceManager;
class AudioPlayer;
class KeyCast;
class Scheduler;
class SettingsStore;
class SoundEngine;
class SoundpackStore;
class ThemeStore;
class TypingMonitor;

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
    /// Whether the desktop starts Tappix at login.
    std::function<bool()> launchesAtLogin = {};
    /// Starts Tappix at login, or stops doing so; false when the file system refused.
    std::function<bool(bool)> setLaunchAtLogin = {};
    /// Asks the release feed now.
    std::function<void()> checkForUpdates = {};
    /// Shows a notification so the user sees what Tappix's look like.
    std::function<void()> sendTestNotification = {};
    /// Holds the sounds shortcut back (true) while a new one is being recorded.
    std::function<void(bool)> pauseShortcut = {};
    /// Writes mono 48 kHz samples as a 16-bit PCM WAV file; false with the system's
    /// reason. Any thread (kits designed in the views are written off the main thread).
    std::function<bool(const std::vector<float>&, const QString& path, std::string& error)>
        writeSamples = {};
    /// Imports a keyboard-sound pack made for another program (a folder or a .zip) as a
    /// kit in the user kit directory. Any thread (the Sound page imports off the main thread).
    std::function<PackImportResult(const QString& path, const PackImporter::Options& options)>
        importPack = {};
    /// Whether keys can be captured now (the first-run window's steps).
    std::function<bool()> captureIsPossible = {};
    /// Timers for the views' models; the Qt event loop's when null.
    Scheduler* scheduler = nullptr;
};

} // namespace tappix

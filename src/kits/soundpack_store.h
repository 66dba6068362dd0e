#pragma once

#include "kits/soundpack_config.h"

#include <QString>
#include <optional>
#include <string_view>
#include <vector>

namespace tappix {

/// A kit found on disk: its manifest and where it lives.
struct Soundpack {
    /// The decoded manifest.
    SoundpackConfig config;
    /// The kit directory (holding config.json and sounds/).
    QString directory;
    /// Whether it came from the user's kit directory rather than the bundle.
    bool isUserPack = false;

    /// The directory holding the kit's sample files.
    QString soundsDirectory() const { return directory + QStringLiteral("/sounds"); }
};

/// Finds every kit Tappix can play: the bundled kits, then the user's own, each
/// directory scanned non-recursively in name order. Kits that do not decode are
/// skipped with "skipping pack at %s: %s". Main thread only.
class SoundpackStore {
public:
    /// A store over the given directories; nothing is scanned until `reload`.
    SoundpackStore(QString bundleDirectory, QString userDirectory);

    /// `<prefix>/share/tappix/Soundpacks`, found relative to the running executable
    /// (so the build tree works too); empty when there is none.
    static QString defaultBundleDirectory();

    /// `$XDG_DATA_HOME/Tappix/Soundpacks`, created when missing (failures ignored).
    static QString defaultUserDirectory();

    /// Rebuilds the list from disk: bundle kits first, then user kits. Main thread.
    void reload();

    /// Appends the kits found directly inside `directory`. Main thread.
    void scan(const QString& directory, bool isUserPack);

    /// Every kit found, in discovery order. Main thread.
    const std::vector<Soundpack>& packs() const { return packs_; }

    /// The first kit with this id (a bundle kit hides a user kit of the same id). Main thread.
    const Soundpack* find(std::string_view id) const;

    /// The bundle directory. Main thread.
    const QString& bundleDirectory() const { return bundleDirectory_; }
    /// The user directory. Main thread.
    const QString& userDirectory() const { return userDirectory_; }

private:
    QString bundleDirectory_;
    QString userDirectory_;
    std::vector<Soundpack> packs_;
};

} // namespace tappix

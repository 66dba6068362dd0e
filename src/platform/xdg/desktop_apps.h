#pragma once

#include "monitors/focus_source.h"

#include <QString>
#include <QStringList>
#include <map>

namespace tappix {

/// The applications the desktop knows: every `applications/*.desktop` file under the
/// XDG data directories (`$XDG_DATA_HOME`, then `$XDG_DATA_DIRS`; the first file of an
/// id wins), with its name, icon and `StartupWMClass`. Read on construction and again
/// by `rescan`. Main thread.
class DesktopApps {
public:
    /// Reads the files of the directories the environment names.
    DesktopApps();

    /// Reads the files again (new applications installed since).
    void rescan();

    /// The application of a window: its desktop id when `hintedId` (a toolkit's own
    /// application id) names a known file, when a file's StartupWMClass is one of
    /// `classes`, or when a file is named after one of them (letter case aside); else
    /// the first class, shown by that name with an icon of that name.
    AppIdentity identify(const QString& hintedId, const QStringList& classes) const;

    /// The name and icon of a stored id, which is a desktop id or a class name.
    AppIdentity describe(const QString& id) const;

private:
    struct Entry {
        QString name;
        QString icon;
        QString startupWMClass;
    };
    AppIdentity identityOf(const QString& id, const Entry& entry) const;

    std::map<QString, Entry> byId_;
    // Lower-cased StartupWMClass and ids, to the id.
    std::map<QString, QString> byClass_;
    std::map<QString, QString> byLowerId_;
};

} // namespace tappix

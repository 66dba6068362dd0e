#pragma once

#include <QString>
#include <QStringList>

namespace tappix {

/// The pages of the settings window, by the ids stored in `lastSettingsPage`.
namespace SettingsPage {

/// Every page id, in sidebar order.
const QStringList& ids();
/// Whether `id` names a page.
bool isKnown(const QString& id);
/// The page to show for a stored or requested id: the id itself when it names a page,
/// else the first page ("sounds"), as a fresh store's "sound" or a hand-edited value needs.
QString resolve(const QString& id);

} // namespace SettingsPage

} // namespace tappix

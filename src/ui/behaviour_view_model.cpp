#include "ui/behaviour_view_model.h"

#include "input/shortcut.h"
#include "monitors/update_checker.h"
#include "settings/settings_store.h"

#include <QKeySequence>

namespace tappix {

namespace {

// Qt's short names for keys that the shortcut reads under their full names.
QString keyName(int key) {
    switch (key) {
    case Qt::Key_Delete:
        return QStringLiteral("Delete");
    case Qt::Key_Insert:
        return QStringLiteral("Insert");
    case Qt::Key_PageUp:
        return QStringLiteral("PageUp");
    case Qt::Key_PageDown:
        return QStringLiteral("PageDown");
    case Qt::Key_Escape:
        return QStringLiteral("Escape");
    case Qt::Key_Enter:
    case Qt::Key_Return:
        return QStringLiteral("Return");
    case Qt::Key_Backtab:
        return QStringLiteral("Tab");
    default:
        return QKeySequence(key).toString(QKeySequence::PortableText);
    }
}

bool isModifierKey(int key) {
    return key == Qt::Key_Control || key == Qt::Key_Alt || key == Qt::Key_Shift ||
           key == Qt::Key_Meta || key == Qt::Key_Super_L || key == Qt::Key_Super_R ||
           key == Qt::Key_AltGr || key == Qt::Key_Hyper_L || key == Qt::Key_Hyper_R;
}

} // namespace

BehaviourViewModel::BehaviourViewModel(const ShellServices& services, QObject* parent)
    : QObject(parent), services_(services) {
    connect(&services_.settings, &SettingsStore::sleepAppIdsChanged, this,
            &BehaviourViewModel::listChanged);
    if (services_.focus) {
        connect(services_.focus, &FocusSource::lastOtherAppChanged, this,
                &BehaviourViewModel::frontAppChanged);
        // A display that goes away takes the source with it.
        connect(services_.focus, &FocusSource::focusChanged, this,
                &BehaviourViewModel::windowSourceChanged);
    }
    if (services_.updates)
        connect(services_.updates, &UpdateChecker::changed, this,
                &BehaviourViewModel::updateStatusChanged);
    listChanged();
}

bool BehaviourViewModel::windowTriggersAvailable() const {
    return windowTriggersProblem().isEmpty();
}

QString BehaviourViewModel::windowTriggersProblem() const {
    if (!services_.focus)
        return QStringLiteral("Tappix cannot see which window is in front here.");
    return services_.focus->unavailableReason();
}

QString BehaviourViewModel::frontAppName() const {
    const auto& app = services_.focus ? services_.focus->lastOtherApp() : std::nullopt;
    return app ? app->name : QString();
}

bool BehaviourViewModel::frontAppListed() const {
    const auto& app = services_.focus ? services_.focus->lastOtherApp() : std::nullopt;
    return app && services_.settings.sleepAppIds().contains(app->id);
}

void BehaviourViewModel::addFrontApp() {
    if (const auto& app = services_.focus ? services_.focus->lastOtherApp() : std::nullopt)
        addApp(app->id);
}

void BehaviourViewModel::refreshRunningApps() {
    running_ = services_.focus ? services_.focus->runningApps() : std::vector<AppIdentity>{};
    showRunning();
}

void BehaviourViewModel::showRunning() {
    // Apps on the list already are not offered again.
    std::vector<AppIdentity> offered;
    const QStringList listed = services_.settings.sleepAppIds();
    for (const AppIdentity& app : running_)
        if (!listed.contains(app.id))
            offered.push_back(app);
    runningApps_.setApps(std::move(offered));
}

void BehaviourViewModel::addRunningApp(int row) {
    if (const AppIdentity* app = runningApps_.at(row))
        addApp(app->id);
}

void BehaviourViewModel::removeSleepApp(int row) {
    const AppIdentity* app = sleepApps_.at(row);
    if (!app)
        return;
    QStringList ids = services_.settings.sleepAppIds();
    ids.removeAll(app->id);
    services_.settings.setSleepAppIds(ids);
}

void BehaviourViewModel::addApp(const QString& id) {
    QStringList ids = services_.settings.sleepAppIds();
    if (id.isEmpty() || ids.contains(id))
        return;
    ids.append(id);
    services_.settings.setSleepAppIds(ids);
}

void BehaviourViewModel::listChanged() {
    std::vector<AppIdentity> apps;
    for (const QString& id : services_.settings.sleepAppIds())
        apps.push_back(services_.focus ? services_.focus->describe(id) : AppIdentity{id, id, {}});
    sleepApps_.setApps(std::move(apps));
    showRunning();
    Q_EMIT frontAppChanged();
}

bool BehaviourViewModel::launchAtLogin() const {
    return services_.launchesAtLogin && services_.launchesAtLogin();
}

void BehaviourViewModel::setLaunchAtLogin(bool enabled) {
    const bool done = services_.setLaunchAtLogin && services_.setLaunchAtLogin(enabled);
    launchAtLoginProblem_ =
        done ? QString()
             : QStringLiteral("Tappix could not change your desktop's autostart folder.");
    Q_EMIT launchAtLoginChanged();
}

void BehaviourViewModel::checkForUpdates() {
    if (services_.updates)
        services_.updates->checkNow();
}

QString BehaviourViewModel::updateStatus() const {
    const UpdateChecker* updates = services_.updates;
    if (!updates)
        return {};
    if (updates->isChecking())
        return QStringLiteral("Checking for updates…");
    if (!updates->hasChecked())
        return {};
    if (!updates->lastError().isEmpty())
        return QStringLiteral("Couldn't check for updates: %1.").arg(updates->lastError());
    if (!updates->updateAvailable())
        return QStringLiteral("Tappix %1 is the newest version.").arg(updates->currentVersion());
    QString text = QStringLiteral("Tappix %1 is available; you have %2.")
                       .arg(updates->latestVersion(), updates->currentVersion());
    if (!updates->latestLink().isEmpty())
        text += QStringLiteral(" Read about it at %1").arg(updates->latestLink());
    return text;
}

void BehaviourViewModel::sendTestNotification() {
    if (services_.sendTestNotification)
        services_.sendTestNotification();
}

void BehaviourViewModel::setRecording(bool recording) {
    if (services_.pauseShortcut)
        services_.pauseShortcut(recording);
}

QString BehaviourViewModel::combinationText(int key, int modifiers) {
    const QString name = keyName(key);
    if (name.isEmpty())
        return {};
    QString text;
    if (modifiers & Qt::ControlModifier)
        text += QStringLiteral("Ctrl+");
    if (modifiers & Qt::AltModifier)
        text += QStringLiteral("Alt+");
    if (modifiers & Qt::ShiftModifier)
        text += QStringLiteral("Shift+");
    if (modifiers & Qt::MetaModifier)
        text += QStringLiteral("Super+");
    return text + name;
}

QVariantMap BehaviourViewModel::recordShortcut(int key, int modifiers) {
    if (isModifierKey(key))
        return {};
    const int held =
        modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier | Qt::MetaModifier);
    // Shift alone still types: it takes one of the others.
    if (!(held & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)))
        return {{QStringLiteral("problem"), kNeedsModifier}};
    const auto shortcut = Shortcut::parse(combinationText(key, held));
    if (!shortcut)
        return {{QStringLiteral("problem"), kUnknownKey}};
    // A combination the desktop uses too is fine: Tappix only listens.
    const QString text = shortcut->toString();
    services_.settings.setToggleSoundsShortcut(text);
    return {{QStringLiteral("text"), text}};
}

} // namespace tappix

#include "platform/dbus/kwin_focus_source.h"

#include "core/log.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>
#include <unistd.h>

namespace tappix {
namespace {

const QString kScriptingPath = QStringLiteral("/Scripting");
const QString kScriptingInterface = QStringLiteral("org.kde.kwin.Scripting");
/// How long a call into KWin may take before Tappix gives up on it.
constexpr int kCallTimeoutMs = 3000;

/// The KWin script; `@SERVICE@` and `@PATH@` become JSON strings naming this
/// process's connection and report object. KWin 6 renamed clients to windows
/// (`windowList`, `activeWindow`, `windowActivated` …); the script takes whichever the
/// running KWin has. Byte arrays (KWin 5's resource names) reach the script as
/// ArrayBuffers, hence `text`.
constexpr const char* kScript = R"JS(
var kwin6 = typeof workspace.windowList === "function";
function windowList() { return kwin6 ? workspace.windowList() : workspace.clientList(); }
function activeWindow() { return kwin6 ? workspace.activeWindow : workspace.activeClient; }
function text(value) {
    if (value instanceof ArrayBuffer)
        return String.fromCharCode.apply(null, new Uint8Array(value));
    return value ? String(value) : "";
}
function describe(c) {
    return {desktopFile: text(c.desktopFileName), resourceClass: text(c.resourceClass),
            resourceName: text(c.resourceName), fullScreen: !!c.fullScreen, pid: c.pid || 0};
}
function report() {
    var windows = [];
    var list = windowList();
    for (var i = 0; i < list.length; ++i)
        if (list[i].normalWindow)
            windows.push(describe(list[i]));
    var active = activeWindow();
    callDBus(@SERVICE@, @PATH@, "app.morvane.tappix.KWinFocus", "Report",
             JSON.stringify({active: active ? describe(active) : null, windows: windows}));
}
function watch(c) {
    if (!c)
        return;
    c.fullScreenChanged.connect(report);
    if (c.windowClassChanged)
        c.windowClassChanged.connect(report);
    if (c.desktopFileNameChanged)
        c.desktopFileNameChanged.connect(report);
}
var existing = windowList();
for (var i = 0; i < existing.length; ++i)
    watch(existing[i]);
(kwin6 ? workspace.windowAdded : workspace.clientAdded).connect(function (c) { watch(c); report(); });
(kwin6 ? workspace.windowRemoved : workspace.clientRemoved).connect(report);
(kwin6 ? workspace.windowActivated : workspace.clientActivated).connect(report);
report();
)JS";

QString jsonString(const QString& value) {
    return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact))
        .mid(1)
        .chopped(1);
}

} // namespace

bool KWinFocusSource::kwinRunning(const QDBusConnection& bus) {
    return bus.isConnected() && bus.interface() &&
           bus.interface()->isServiceRegistered(QString::fromLatin1(kKWinService)).value();
}

KWinFocusSource::KWinFocusSource(QDBusConnection bus, QObject* parent)
    : FocusSource(parent), bus_(std::move(bus)),
      pluginName_(QStringLiteral("tappix-focus-%1").arg(::getpid())) {
    if (!kwinRunning(bus_)) {
        fail(QStringLiteral("KWin is not on the session bus to say which window is in front."));
        return;
    }
    kwinOwner_ = bus_.interface()->serviceOwner(QString::fromLatin1(kKWinService)).value();
    watcher_.setConnection(bus_);
    watcher_.addWatchedService(QString::fromLatin1(kKWinService));
    watcher_.setWatchMode(QDBusServiceWatcher::WatchForOwnerChange);
    connect(&watcher_, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString&, const QString& owner) {
                if (owner == kwinOwner_)
                    return;
                qCWarning(lcApp, "window triggers: KWin left the session bus; they stay awake");
                loaded_ = false; // a new KWin knows nothing of the script
                windows_ = {};
                fail(QStringLiteral("KWin, which said which window is in front, went away."));
            });
    registered_ = bus_.registerObject(QString::fromLatin1(kObjectPath), this,
                                      QDBusConnection::ExportScriptableSlots);
    if (!registered_) {
        qCWarning(lcApp, "window triggers: could not register %s: %s", kObjectPath,
                  qPrintable(bus_.lastError().message()));
        fail(QStringLiteral("Tappix could not take KWin's reports of the window in front."));
        return;
    }
    if (!loadScript())
        fail(QStringLiteral("KWin did not run Tappix's script to say which window is in front."));
}

KWinFocusSource::~KWinFocusSource() {
    unloadScript();
    if (registered_)
        bus_.unregisterObject(QString::fromLatin1(kObjectPath));
}

void KWinFocusSource::fail(const QString& reason) {
    unavailableReason_ = reason;
    report(std::nullopt);
}

bool KWinFocusSource::loadScript() {
    if (!scriptDir_.isValid()) {
        qCWarning(lcApp, "window triggers: no temporary directory for KWin's script");
        return false;
    }
    QString script = QString::fromUtf8(kScript);
    script.replace(QLatin1String("@SERVICE@"), jsonString(bus_.baseService()));
    script.replace(QLatin1String("@PATH@"), jsonString(QString::fromLatin1(kObjectPath)));
    const QString path = scriptDir_.filePath(QStringLiteral("focus.js"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(script.toUtf8()) < 0) {
        qCWarning(lcApp, "window triggers: cannot write %s", qPrintable(path));
        return false;
    }
    file.close();

    auto call = [this](const QString& objectPath, const QString& interface, const QString& method,
                       const QVariantList& args) {
        QDBusMessage message = QDBusMessage::createMethodCall(QString::fromLatin1(kKWinService),
                                                              objectPath, interface, method);
        message.setArguments(args);
        return bus_.call(message, QDBus::Block, kCallTimeoutMs);
    };
    // A script of this name left by an earlier run of this process id would block ours.
    call(kScriptingPath, kScriptingInterface, QStringLiteral("unloadScript"), {pluginName_});
    const QDBusMessage loaded = call(kScriptingPath, kScriptingInterface,
                                     QStringLiteral("loadScript"), {path, pluginName_});
    const int id = loaded.type() == QDBusMessage::ReplyMessage && !loaded.arguments().isEmpty()
                       ? loaded.arguments().first().toInt()
                       : -1;
    if (id < 0) {
        qCWarning(lcApp, "window triggers: KWin did not load the script: %s",
                  qPrintable(loaded.errorMessage()));
        return false;
    }
    loaded_ = true;
    // Runs the scripts loaded and not yet running, ours among them.
    const QDBusMessage ran = call(kScriptingPath, kScriptingInterface, QStringLiteral("start"), {});
    if (ran.type() != QDBusMessage::ReplyMessage) {
        qCWarning(lcApp, "window triggers: KWin did not run the script: %s",
                  qPrintable(ran.errorMessage()));
        unloadScript();
        return false;
    }
    qCInfo(lcApp, "window triggers: KWin reports the window in front");
    return true;
}

void KWinFocusSource::unloadScript() {
    if (!loaded_)
        return;
    loaded_ = false;
    QDBusMessage message =
        QDBusMessage::createMethodCall(QString::fromLatin1(kKWinService), kScriptingPath,
                                       kScriptingInterface, QStringLiteral("unloadScript"));
    message.setArguments({pluginName_});
    const QDBusMessage reply = bus_.call(message, QDBus::Block, kCallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage)
        qCWarning(lcApp, "window triggers: KWin did not unload the script: %s",
                  qPrintable(reply.errorMessage()));
}

FocusedWindow KWinFocusSource::windowOf(const QJsonObject& object) const {
    FocusedWindow out;
    const QString desktopFile = object.value(QLatin1String("desktopFile")).toString();
    for (const char* key : {"resourceName", "resourceClass"}) {
        const QString name = object.value(QLatin1String(key)).toString();
        if (!name.isEmpty() && !out.classes.contains(name))
            out.classes.append(name);
    }
    // The desktop file name goes last, so that with no file of that name it is still
    // what the app is stored and shown as.
    if (!desktopFile.isEmpty() && !out.classes.contains(desktopFile))
        out.classes.append(desktopFile);
    if (!out.classes.isEmpty())
        out.app = apps_.identify(desktopFile, out.classes);
    out.fullScreen = object.value(QLatin1String("fullScreen")).toBool();
    out.ownWindow = object.value(QLatin1String("pid")).toInteger() == ::getpid();
    return out;
}

void KWinFocusSource::Report(const QString& json) {
    if (message().service() != kwinOwner_) {
        sendErrorReply(QDBusError::AccessDenied, QStringLiteral("Only KWin reports here."));
        return;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8(), &error);
    if (!document.isObject()) {
        qCWarning(lcApp, "window triggers: KWin's report does not read: %s",
                  qPrintable(error.errorString()));
        return;
    }
    windows_ = document.object().value(QLatin1String("windows")).toArray();
    const QJsonValue active = document.object().value(QLatin1String("active"));
    if (!active.isObject()) {
        report(std::nullopt);
        return;
    }
    FocusedWindow window = windowOf(active.toObject());
    if (window.app.id.isEmpty() && !window.ownWindow)
        qCInfo(lcApp, "window triggers: the window in front names no application");
    report(std::move(window));
}

std::vector<AppIdentity> KWinFocusSource::runningApps() {
    apps_.rescan();
    std::vector<AppIdentity> out;
    for (const QJsonValue& value : windows_) {
        const FocusedWindow window = windowOf(value.toObject());
        if (window.ownWindow || window.app.id.isEmpty())
            continue;
        if (std::none_of(out.begin(), out.end(),
                         [&](const AppIdentity& a) { return a.id == window.app.id; }))
            out.push_back(window.app);
    }
    std::sort(out.begin(), out.end(), [](const AppIdentity& a, const AppIdentity& b) {
        return QString::compare(a.name, b.name, Qt::CaseInsensitive) < 0;
    });
    return out;
}

AppIdentity KWinFocusSource::describe(const QString& id) const {
    return apps_.describe(id);
}

} // namespace tappix

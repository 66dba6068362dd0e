#include "ui/desktop_shell.h"

#include "audio/audio_player.h"
#include "core/log.h"
#include "monitors/typing_monitor.h"
#include "settings/settings_store.h"
#include "settings/theme_store.h"
#include "ui/symbol_icons.h"

#include <QApplication>
#include <QImageReader>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickStyle>
#include <QQuickWindow>

namespace tappix {

namespace {

const QUrl kPanelUrl(QStringLiteral("qrc:/Tappix/Ui/Panel.qml"));
const QUrl kSettingsUrl(QStringLiteral("qrc:/Tappix/Ui/SettingsWindow.qml"));
const QUrl kKeyCastUrl(QStringLiteral("qrc:/Tappix/Ui/KeyCastOverlay.qml"));
const QUrl kOnboardingUrl(QStringLiteral("qrc:/Tappix/Ui/OnboardingWindow.qml"));

} // namespace

std::unique_ptr<QCoreApplication> DesktopShell::makeApplication(int& argc, char** argv) {
    // A Wayland window cannot choose where it appears, so the panel could not drop from
    // the tray. In a Wayland session with XWayland, Tappix's windows run through it;
    // keys are captured through evdev either way. QT_QPA_PLATFORM still decides.
    if (qgetenv("XDG_SESSION_TYPE") == "wayland" && !qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
    // Tappix's windows are small and mostly still: the software renderer draws them
    // quickly and keeps a graphics driver (tens of megabytes) out of a process that
    // otherwise sits in the tray all day. The environment still decides when it says.
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND")) {
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        if (qEnvironmentVariableIsEmpty("QT_XCB_GL_INTEGRATION"))
            qputenv("QT_XCB_GL_INTEGRATION", "none");
    }
    // Every control is drawn by Tappix's own views in the theme's colours.
    QQuickStyle::setStyle(QStringLiteral("Basic"));
    auto app = std::make_unique<QApplication>(argc, argv);
    // Closing the last window leaves Tappix running in the tray.
    QApplication::setQuitOnLastWindowClosed(false);
    // Qt draws SVG through plugins that some releases package apart from its library.
    if (!QImageReader::supportedImageFormats().contains("svg"))
        qCWarning(lcApp, "icons: Qt's SVG image plugin is not installed, so Tappix's icons "
                         "cannot be drawn");
    QApplication::setWindowIcon(SymbolIcons::applicationIcon());
    return app;
}

DesktopShell::DesktopShell(Services services, QObject* parent)
    : QObject(parent), services_(services),
      kits_(services.packs, services.settings, services.engine), mixes_(services.settings),
      mixEditor_(services.settings, services.packs, services.engine),
      designer_(services.packs, services.settings, services.engine, services.player,
                services.writeSamples),
      recorder_(services.packs, services.settings, services.engine,
                services.clock ? *services.clock : ownClock_,
                services.scheduler ? *services.scheduler : ownScheduler_, services.makeMicrophone,
                services.recordKeys, services.writeSamples),
      kitImport_(services.packs, services.settings, services.engine, services.importPack),
      tuner_(services.packs, services.settings),
      outputDevices_(services.settings, services.devices,
                     services.player ? &services.player->output() : nullptr),
      behaviour_(services), onboarding_(services.scheduler ? *services.scheduler : ownScheduler_,
                                        {.captureIsPossible = services.captureIsPossible,
                                         .showFile = services.showFile,
                                         .keyboardAccess = services.keyboardAccess,
                                         .canAskToJoin = services.canAskToJoin,
                                         .askToJoin = services.askToJoin}),
      settingsWindow_(services.settings, [this] { return makeWindow(kSettingsUrl); }),
      onboardingWindow_(onboarding_, [this] { return makeWindow(kOnboardingUrl); }) {
    panelModel_.setMixCount(mixes_.count());
    panelModel_.setCurrentKitName(kits_.currentName());
    connect(&mixes_, &MixListModel::countChanged, this,
            [this] { panelModel_.setMixCount(mixes_.count()); });
    connect(&kits_, &KitListModel::currentChanged, this,
            [this] { panelModel_.setCurrentKitName(kits_.currentName()); });
    // A designed, recorded or imported kit, once written, is listed at once under the
    // user's own, in the panel, the Sound page and the mix editor's kit browser alike.
    const auto listNewKits = [this] {
        kits_.reload();
        mixEditor_.kitsReloaded();
        tuner_.kitsReloaded();
    };
    connect(&designer_, &DesignerViewModel::packsReloaded, this, listNewKits);
    connect(&recorder_, &RecorderViewModel::packsReloaded, this, listNewKits);
    connect(&kitImport_, &KitImportViewModel::packsReloaded, this, listNewKits);
    menuBar_ = std::make_unique<MenuBarController>(services_.settings, panelModel_, [this] {
        // The panel shows no settings page.
        QVariantMap properties = viewProperties();
        properties.remove(QStringLiteral("models"));
        return makeWindow(kPanelUrl, properties);
    });
    if (services_.keyCast) {
        keyCast_ = std::make_unique<KeyCastOverlay>(
            services_.settings, *services_.keyCast,
            [this](KeyCastOverlay& overlay) {
                return makeWindow(
                    kKeyCastUrl,
                    {{QStringLiteral("theme"), QVariant::fromValue<QObject*>(&services_.themes)},
                     {QStringLiteral("overlay"), QVariant::fromValue<QObject*>(&overlay)}});
            },
            services_.windowsDrawClear);
    }
}

DesktopShell::~DesktopShell() {
    // Windows go before the engine whose objects they show.
    for (const QPointer<QQuickWindow>& window : windows_)
        delete window.data();
}

QQmlEngine& DesktopShell::engine() {
    if (!engine_) {
        engine_ = std::make_unique<QQmlEngine>();
        // "Quit" in a view ends the run the way the tray menu does.
        connect(engine_.get(), &QQmlEngine::quit, QCoreApplication::instance(),
                &QCoreApplication::quit, Qt::QueuedConnection);
    }
    return *engine_;
}

QVariantMap DesktopShell::viewProperties() {
    return {{QStringLiteral("settings"), QVariant::fromValue<QObject*>(&services_.settings)},
            {QStringLiteral("theme"), QVariant::fromValue<QObject*>(&services_.themes)},
            {QStringLiteral("typing"), QVariant::fromValue<QObject*>(&services_.typing)},
            {QStringLiteral("panel"), QVariant::fromValue<QObject*>(&panelModel_)},
            {QStringLiteral("kits"), QVariant::fromValue<QObject*>(&kits_)},
            {QStringLiteral("mixes"), QVariant::fromValue<QObject*>(&mixes_)},
            {QStringLiteral("models"), pageModels()}};
}

QVariantMap DesktopShell::pageModels() {
    // Each settings page's own view model, by the name its page reads.
    return {{QStringLiteral("mixEditor"), QVariant::fromValue<QObject*>(&mixEditor_)},
            {QStringLiteral("designer"), QVariant::fromValue<QObject*>(&designer_)},
            {QStringLiteral("kitImport"), QVariant::fromValue<QObject*>(&kitImport_)},
            {QStringLiteral("tuner"), QVariant::fromValue<QObject*>(&tuner_)},
            {QStringLiteral("recorder"), QVariant::fromValue<QObject*>(&recorder_)},
            {QStringLiteral("devices"), QVariant::fromValue<QObject*>(&outputDevices_)},
            {QStringLiteral("behaviour"), QVariant::fromValue<QObject*>(&behaviour_)},
            {QStringLiteral("onboarding"), QVariant::fromValue<QObject*>(&onboarding_)}};
}

QQuickWindow* DesktopShell::makeWindow(const QUrl& url) {
    return makeWindow(url, viewProperties());
}

QQuickWindow* DesktopShell::makeWindow(const QUrl& url, const QVariantMap& properties) {
    QQmlComponent component(&engine(), url);
    QObject* object =
        component.isReady() ? component.createWithInitialProperties(properties) : nullptr;
    auto* window = qobject_cast<QQuickWindow*>(object);
    if (!window) {
        // A broken view is a build fault; say which and keep running without it.
        qCCritical(lcApp, "could not make the window %s: %s", qPrintable(url.toString()),
                   qPrintable(component.errorString()));
        delete object;
        return nullptr;
    }
    QQmlEngine::setObjectOwnership(window, QQmlEngine::CppOwnership);
    windows_.emplace_back(window);
    return window;
}

} // namespace tappix

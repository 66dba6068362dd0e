#pragma once

#include "ui/behaviour_view_model.h"
#include "ui/designer_view_model.h"
#include "ui/key_cast_overlay.h"
#include "ui/kit_import_view_model.h"
#include "ui/kit_list_model.h"
#include "ui/menu_bar_controller.h"
#include "ui/menu_panel_model.h"
#include "ui/mix_editor_model.h"
#include "ui/mix_list_model.h"
#include "ui/onboarding_model.h"
#include "ui/onboarding_window_controller.h"
#include "ui/output_device_list_model.h"
#include "ui/recorder_view_model.h"
#include "ui/settings_window_controller.h"
#include "ui/shell_services.h"
#include "ui/tuner_view_model.h"

#include "core/clock.h"
#include "core/qt_scheduler.h"

#include <QCoreApplication>
#include <QObject>
#include <QPointer>
#include <QUrl>
#include <QVariantMap>
#include <memory>
#include <vector>

class QQmlEngine;
#include <QQuickWindow>

namespace tappix {

class SettingsStore;
class SoundEngine;
class SoundpackStore;
class ThemeStore;
class TypingMonitor;

/// Everything a user sees: the tray icon with its panel and the settings window, their
/// view models, and the QML engine that draws them, made on first need. The services
/// are handed to the views as they are. Main thread only.
class DesktopShell final : public QObject {
    Q_OBJECT
public:
    /// The services the views show and change.
    using Services = ShellServices;

    /// The application object a desktop Tappix runs in (widgets, for the tray icon).
    static std::unique_ptr<QCoreApplication> makeApplication(int& argc, char** argv);

    explicit DesktopShell(Services services, QObject* parent = nullptr);
    ~DesktopShell() override;

    /// The tray icon and the panel.
    MenuBarController& menuBar() { return *menuBar_; }
    /// The panel's state.
    MenuPanelModel& panelModel() { return panelModel_; }
    /// The Behaviour page's commands.
    BehaviourViewModel& behaviour() { return behaviour_; }
    /// The kits the panel lists.
    KitListModel& kits() { return kits_; }
    /// The Mix page's editor.
    MixEditorModel& mixEditor() { return mixEditor_; }
    /// The Create page's switch designer.
    DesignerViewModel& designer() { return designer_; }
    /// The Create page's keyboard recorder.
    RecorderViewModel& recorder() { return recorder_; }
    /// The Sound page's import of packs made for other programs.
    KitImportViewModel& kitImport() { return kitImport_; }
    /// The Create page's tuner for the main kit.
    TunerViewModel& tuner() { return tuner_; }
    /// The Sound page's output device picker.
    OutputDeviceListModel& outputDevices() { return outputDevices_; }
    /// Shows the settings window on the page `lastSettingsPage` names.
    void showSettings() { settingsWindow_.show(); }
    /// Whether the settings window shows.
    bool isSettingsVisible() const { return settingsWindow_.isVisible(); }
    /// The settings window, once made (tests, screenshots).
    QQuickWindow* settingsWindow() const { return settingsWindow_.window(); }
    /// The key-cast overlay, when the services have chips to show.
    KeyCastOverlay* keyCastOverlay() { return keyCast_.get(); }
    /// The first-run window's steps and commands.
    OnboardingModel& onboarding() { return onboarding_; }
    /// Shows the first-run window on the step that holds now.
    void showOnboarding() { onboardingWindow_.show(); }
    /// Whether the first-run window shows.
    bool isOnboardingVisible() const { return onboardingWindow_.isVisible(); }
    /// The first-run window, once made (tests, screenshots).
    QQuickWindow* onboardingWindow() const { return onboardingWindow_.window(); }

private:
    QQuickWindow* makeWindow(const QUrl& url);
    QQuickWindow* makeWindow(const QUrl& url, const QVariantMap& properties);
    QQmlEngine& engine();
    QVariantMap viewProperties();
    QVariantMap pageModels();

    Services services_;
    QtScheduler ownScheduler_;
    SteadyClock ownClock_;
    MenuPanelModel panelModel_;
    KitListModel kits_;
    MixListModel mixes_;
    MixEditorModel mixEditor_;
    DesignerViewModel designer_;
    RecorderViewModel recorder_;
    KitImportViewModel kitImport_;
    TunerViewModel tuner_;
    OutputDeviceListModel outputDevices_;
    BehaviourViewModel behaviour_;
    OnboardingModel onboarding_;
    std::unique_ptr<QQmlEngine> engine_;
    std::vector<QPointer<QQuickWindow>> windows_;
    std::unique_ptr<MenuBarController> menuBar_;
    SettingsWindowController settingsWindow_;
    std::unique_ptr<KeyCastOverlay> keyCast_;
    OnboardingWindowController onboardingWindow_;
};

} // namespace tappix

#include "app/app_delegate.h"

#include "core/log.h"
#include "input/key_codes.h"
#include "kits/kit_catalog.h"
#include "platform/audio_backends.h"
#include "platform/pack_import.h"
#include "platform/sndfile/sndfile_decoder.h"
#ifdef TAPPIX_WITH_X11
#include "platform/x11/x11_compositor.h"
#endif

#include <QCoreApplication>
#include <QFile>
#include <QGuiApplication>
#include <QMetaObject>
#include <QPointer>
#include <random>
#include <utility>

namespace tappix {

AppDelegate::AppDelegate(Platform platform, const QString& preferencesPath,
                         const QString& bundleKits, const QString& userKits, QObject* parent)
    : QObject(parent), scheduler_(platform.scheduler ? *platform.scheduler : ownScheduler_),
      clock_(platform.clock ? *platform.clock : ownClock_), withWindows_(platform.withWindows),
      launchesAtLogin_(std::move(platform.launchesAtLogin)),
      makeMicrophone_(platform.makeMicrophone ? std::move(platform.makeMicrophone)
                                              : std::function<std::unique_ptr<Microphone>()>(
                                                    [] { return makeMicrophone(); })),
      setLaunchAtLogin_(std::move(platform.setLaunchAtLogin)),
      captureIsPossible_(std::move(platform.captureIsPossible)),
      keyboardAccess_(std::move(platform.keyboardAccess)),
      canAskToJoin_(std::move(platform.canAskToJoin)), askToJoin_(std::move(platform.askToJoin)),
      startWithGroup_(std::move(platform.startWithGroup)), showFile_(std::move(platform.showFile)),
      tookOver_(platform.tookOver) {
    preferences_ = std::make_unique<JsonFilePreferences>(preferencesPath, scheduler_);
    settings_ = std::make_unique<SettingsStore>(*preferences_, scheduler_);
    themes_ = std::make_unique<ThemeStore>(*preferences_);
    packStore_ = std::make_unique<SoundpackStore>(bundleKits, userKits);
    packStore_->reload();
    devices_ = std::move(platform.devices);
    audioPlayer_ =
        std::make_unique<AudioPlayer>(std::move(platform.output), std::move(platform.decoder),
                                      *devices_, settings_->volume(), &clock_);
    if (platform.onAudioQueueThread)
        audioPlayer_->runOnQueue(std::move(platform.onAudioQueueThread));
    keyService_ = std::make_unique<KeyEventService>(std::move(platform.capture));
    notifier_ = std::move(platform.notifier);
    focus_ = std::move(platform.focus);
    sleepMonitor_ =
        std::make_unique<SleepMonitor>(*settings_, *devices_, *notifier_, scheduler_, focus_.get());
    typingMonitor_ = std::make_unique<TypingMonitor>(*settings_, clock_, scheduler_);
    keyCast_ = std::make_unique<KeyCast>(clock_, scheduler_);
    feedFetcher_ = std::move(platform.feedFetcher);
    if (feedFetcher_)
        updateChecker_ =
            std::make_unique<UpdateChecker>(*settings_, *feedFetcher_, *notifier_, scheduler_,
                                            platform.updateFeed, QStringLiteral(TAPPIX_VERSION));
    qCInfo(lcApp, "preferences at %s; %zu kits found", qPrintable(preferencesPath),
           packStore_->packs().size());
}

AppDelegate::~AppDelegate() {
    shutdown();
}

void AppDelegate::start() {
    chooseFirstKit();

    soundEngine_ =
        std::make_unique<SoundEngine>(*packStore_, *audioPlayer_, clock_, std::random_device{}());
    // Counters change only on the main thread: the engine's counts ride along with the
    // event's one hop there (installCallbacks).
    soundEngine_->setCounters({[this] { ++eventCounts_.keystrokes; },
                               [this] { ++eventCounts_.dings; },
                               [this] { ++eventCounts_.clicks; }});
    soundEngine_->setSettings(engineSettings());
    const auto selected = settings_->selectedPackId();
    soundEngine_->loadPack(selected ? packStore_->find(selected->toStdString()) : nullptr);

    installCallbacks();
    if (withWindows_)
        makeShell();
    applyShortcut();
    connect(settings_.get(), &SettingsStore::toggleSoundsShortcutChanged, this,
            &AppDelegate::applyShortcut);

    // Re-apply on the main queue after any change, once per burst of changes.
    connect(settings_.get(), &SettingsStore::tappixSettingsChanged, this, [this] {
        if (applyQueued_)
            return;
        applyQueued_ = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                applyQueued_ = false;
                applySettings();
            },
            Qt::QueuedConnection);
    });
    connect(settings_.get(), &SettingsStore::tappixMixChanged, this, [this] {
        soundEngine_->setSettings(engineSettings());
        soundEngine_->mixChanged();
    });
    sleepMonitor_->setOnChange([this](bool isSleeping, const std::optional<QString>& reason) {
        sleepChanged(isSleeping, reason);
    });
    sleepMonitor_->start();
    applySettings();
    if (updateChecker_)
        updateChecker_->start();

    const bool possible = captureIsPossible_ && captureIsPossible_();
    wasTrusted_ = possible;
    if (possible)
        startCapture();
    else
        qCWarning(lcApp, "key capture is not possible yet: run tappix-doctor to see why; "
                         "checking again every 2 s");
    if (shell_) {
        // The panel asks for access, not for a capture that failed for another reason.
        shell_->panelModel().setCaptureIsPossible(possible);
        showWelcomeOrSettings();
    }
    if (!possible)
        checkAccess();
    connect(&permissionTimer_, &QTimer::timeout, this, &AppDelegate::permissionTick);
    permissionTimer_.start(kPermissionPollMs);
}

void AppDelegate::setKeyRecorder(std::function<void(KeyCode, bool, KeyTime)> recorder) {
    const std::lock_guard lock(keyRecorderMutex_);
    keyRecorderOn_.store(static_cast<bool>(recorder), std::memory_order_release);
    keyRecorder_ = std::move(recorder);
}

void AppDelegate::makeShell() {
    DesktopShell::Services services{*settings_,         *themes_,        *packStore_,
                                    soundEngine_.get(), *typingMonitor_, audioPlayer_.get(),
                                    devices_.get()};
    services.keyCast = keyCast_.get();
    services.focus = focus_.get();
    services.launchesAtLogin = launchesAtLogin_;
    services.setLaunchAtLogin = setLaunchAtLogin_;
    services.pauseShortcut = [this](bool paused) {
        shortcutPaused_.store(paused, std::memory_order_relaxed);
    };
    services.updates = updateChecker_.get();
    services.makeMicrophone = makeMicrophone_;
    services.clock = &clock_;
    services.recordKeys = [this](std::function<void(KeyCode, bool, KeyTime)> recorder) {
        setKeyRecorder(std::move(recorder));
    };
    services.sendTestNotification = [this] {
        notifier_->post(QStringLiteral("tappix.test"), QStringLiteral("Tappix"),
                        QStringLiteral("This is how Tappix tells you it sleeps and wakes."));
    };
    services.writeSamples = [](const std::vector<float>& samples, const QString& path,
                               std::string& error) {
        return writeWav(samples, QFile::encodeName(path).toStdString(), error);
    };
    services.importPack = &tappix::importPack;
    services.captureIsPossible = [this] { return captureIsPossible_ && captureIsPossible_(); };
    services.keyboardAccess = keyboardAccess_;
    services.canAskToJoin = canAskToJoin_;
    services.askToJoin = askToJoin_;
    services.showFile = showFile_;
    services.windowsDrawClear = [] {
#ifdef TAPPIX_WITH_X11
        // On X11 only a compositing manager shows a window's clear parts; Wayland always does.
        if (auto* x11 =
                qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr)
            return x11CompositorIsRunning(x11->display());
#endif
        return true;
    };
    services.scheduler = &scheduler_;
    shell_ = std::make_unique<DesktopShell>(services);
    auto quit = [] {
        QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    };
    MenuBarController& menu = shell_->menuBar();
    connect(&menu, &MenuBarController::aboutRequested, this,
            [this] { openSettings(QStringLiteral("about")); });
    connect(&menu, &MenuBarController::updateCheckRequested, this, &AppDelegate::checkForUpdates);
    connect(&menu, &MenuBarController::settingsRequested, this, [this] { openSettings(); });
    connect(&menu, &MenuBarController::studioRequested, this,
            [this] { openSettings(QStringLiteral("create")); });
    connect(&menu, &MenuBarController::quitRequested, this, quit);
    MenuPanelModel& panel = shell_->panelModel();
    // Leaving the panel for a window closes it.
    connect(&panel, &MenuPanelModel::openPageRequested, this, [this](const QString& page) {
        shell_->panelModel().dismiss();
        openSettings(page);
    });
    connect(&panel, &MenuPanelModel::openSettingsRequested, this, [this] {
        shell_->panelModel().dismiss();
        openSettings();
    });
    connect(&panel, &MenuPanelModel::permissionRequested, this, [this] {
        shell_->panelModel().dismiss();
        showOnboarding();
    });
    connect(&panel, &MenuPanelModel::quitRequested, this, quit);
    connect(&shell_->onboarding(), &OnboardingModel::finished, this,
            &AppDelegate::finishOnboarding);
    // Joined a moment ago: start again with the group at once, not at the next poll.
    connect(&shell_->onboarding(), &OnboardingModel::joinedGroup, this, &AppDelegate::checkAccess);
}

void AppDelegate::showWelcomeOrSettings() {
    // Started again with the keyboards' group: the first-run window goes on where the
    // one before left it.
    if (tookOver_ || !settings_->hasSeenWelcome() || !wasTrusted_) {
        showOnboarding();
        return;
    }
    // A start at login stays quiet in the tray; a start by hand shows the settings.
    if (launchesAtLogin_ && launchesAtLogin_()) {
        qCInfo(lcApp, "started at login: no window");
        return;
    }
    openSettings();
}

void AppDelegate::installCallbacks() {
    // The key fan-out: the sound engine first, so nothing delays the sound; then the
    // shortcut, which only listens; the key-cast overlay, at once on the main thread; and
    // the typing statistics, gathered for the main thread to take a few times a second.
    // The overlay's keys stay on the key queue while it is off, and only key-downs and
    // modifiers' releases ever leave.
    // Targets are held weakly where they live on the main thread; the engine outlives
    // the key service (members below) and shutdown clears these before anything goes.
    SoundEngine* engine = soundEngine_.get();
    QPointer<KeyCast> cast = keyCast_.get();
    QPointer<AppDelegate> self = this;
    keyService_->setOnKeyEvent([engine, cast, self, this](KeyCode code, bool down, KeyTime at) {
        bool recorded = false;
        if (keyRecorderOn_.load(std::memory_order_acquire)) {
            const std::lock_guard lock(keyRecorderMutex_);
            if (keyRecorder_) {
                keyRecorder_(code, down, at);
                recorded = true;
            }
        }
        if (!recorded)
            engine->handleKey(code, down);
        // Fed always, so held modifiers stay known; heard only while no recorder listens.
        const bool toggle =
            shortcutMatcher_.feed(code, down) && !shortcutPaused_.load(std::memory_order_relaxed);
        const bool toCast =
            keyCastOn_.load(std::memory_order_relaxed) && (down || keys::isModifier(code));
        queueStatistics(std::exchange(eventCounts_, {}),
                        down ? std::optional<KeyCode>(code) : std::nullopt);
        if (!toggle && !toCast)
            return;
        // The overlay and the shortcut are seen at once: one hop for both.
        QMetaObject::invokeMethod(
            self,
            [self, cast, code, down, toggle, toCast] {
                if (!self)
                    return;
                if (toCast && cast)
                    cast->key(code, down);
                if (toggle)
                    self->toggleSounds();
            },
            Qt::QueuedConnection);
    });
    keyService_->setOnMouseEvent([engine, this](MouseButton button, bool down) {
        engine->handleMouse(button, down);
        queueStatistics(std::exchange(eventCounts_, {}), std::nullopt);
    });
}

void AppDelegate::queueStatistics(const EventCounts& counts, std::optional<KeyCode> keyDown) {
    if (!keyDown && !counts.any())
        return;
    bool wake = false;
    {
        const std::lock_guard lock(statisticsMutex_);
        if (keyDown)
            statisticsKeys_.push_back({*keyDown, clock_.now()});
        statisticsCounts_ += counts;
        wake = !std::exchange(statisticsTakeDue_, true);
    }
    if (wake) {
        QPointer<AppDelegate> self = this;
        QMetaObject::invokeMethod(
            this,
            [self] {
                if (self)
                    self->takeStatistics(true);
            },
            Qt::QueuedConnection);
    }
}

void AppDelegate::takeStatistics(bool again) {
    EventCounts counts;
    {
        const std::lock_guard lock(statisticsMutex_);
        // The buffers trade places, so the key queue reuses this one's room.
        takenKeys_.swap(statisticsKeys_);
        counts = std::exchange(statisticsCounts_, {});
        const bool any = !takenKeys_.empty() || counts.any();
        // Nothing came since the last take: the next event wakes the main thread again.
        statisticsTakeDue_ = again && any;
        if (!any)
            return;
    }
    count(counts);
    for (const StatisticsKey& key : takenKeys_)
        typingMonitor_->keyDown(key.code, key.at);
    takenKeys_.clear();
    if (!again)
        return;
    QPointer<AppDelegate> self = this;
    scheduler_.schedule(kStatisticsBatch, [self] {
        if (self)
            self->takeStatistics(true);
    });
}

void AppDelegate::count(const EventCounts& counts) {
    for (int i = 0; i < counts.keystrokes; ++i)
        settings_->incrementKeystrokes();
    for (int i = 0; i < counts.dings; ++i)
        settings_->incrementDings();
    for (int i = 0; i < counts.clicks; ++i)
        settings_->incrementClicks();
}

void AppDelegate::applyShortcut() {
    const QString text = settings_->toggleSoundsShortcut();
    std::optional<Shortcut> shortcut;
    if (!text.trimmed().isEmpty()) {
        shortcut = Shortcut::parse(text);
        if (!shortcut)
            qCWarning(lcApp,
                      "the shortcut \"%s\" is not a key combination Tappix knows; "
                      "the sounds shortcut is off",
                      qPrintable(text));
    }
    // The matcher lives on the key queue: hand it over there.
    keyService_->post([this, shortcut] { shortcutMatcher_.setShortcut(shortcut); });
}

void AppDelegate::toggleSounds() {
    if (shutDown_)
        return;
    settings_->setIsEnabled(!settings_->isEnabled());
    qCInfo(lcApp, "sounds %s by the shortcut", settings_->isEnabled() ? "on" : "off");
}

void AppDelegate::checkForUpdates() {
    // Asked from the tray, where no window shows the answer: a notification tells it.
    if (updateChecker_)
        updateChecker_->checkNow(UpdateChecker::Report::everyOutcome);
}

void AppDelegate::chooseFirstKit() {
    if (settings_->selectedPackId())
        return;
    // A new user hears sound at once: the buckling spring, else the first kit listed.
    const Soundpack* choice = packStore_->find(kFirstKit);
    if (!choice && !packStore_->packs().empty()) {
        std::vector<const Soundpack*> ordered;
        for (const auto& pack : packStore_->packs())
            if (pack.config.metadata.category != "mouse")
                ordered.push_back(&pack);
        std::stable_sort(ordered.begin(), ordered.end(),
                         [](const Soundpack* a, const Soundpack* b) {
                             const auto fa = KitCatalog::family(*a), fb = KitCatalog::family(*b);
                             if (fa != fb)
                                 return fa.has_value() && (!fb || *fa < *fb);
                             return KitCatalog::listsBefore(*a, *b);
                         });
        choice = ordered.empty() ? nullptr : ordered.front();
    }
    if (choice) {
        qCInfo(lcApp, "first launch: selecting %s", choice->config.id.c_str());
        settings_->setSelectedPackId(QString::fromStdString(choice->config.id));
    }
}

SoundEngine::Settings AppDelegate::engineSettings() const {
    const SettingsStore& s = *settings_;
    SoundEngine::Settings out;
    out.isEnabled = s.isEnabled();
    out.ignoreRapidKeys = s.ignoreRapidKeys();
    out.modifierSoundsEnabled = s.modifierSoundsEnabled();
    out.keyUpSoundsEnabled = s.keyUpSoundsEnabled();
    out.dingOnReturn = s.dingOnReturn();
    out.pitchVariation = s.pitchVariation();
    out.stereoPanning = s.stereoPanning();
    out.spatialAudio = s.spatialAudio();
    out.mouseClickSounds = s.mouseClickSounds();
    out.tonePitch = s.tonePitch();
    out.effectsVolume = s.effectsVolume();
    out.mouseSound = MouseSoundOption::parse(s.mouseSoundId().toStdString());
    for (KeyGroup::Value group : KeyGroup::allCases)
        out.voices[group] = s.voice(group);
    for (const auto& [id, tuning] : s.tunings())
        out.tunings.emplace(id.toStdString(), tuning);
    return out;
}

void AppDelegate::applySettings() {
    if (!soundEngine_ || shutDown_)
        return;
    SettingsStore& s = *settings_;
    soundEngine_->setSettings(engineSettings());
    keyService_->setMouseCapture(s.mouseClickSounds());
    audioPlayer_->setMasterVolume(s.volume());
    audioPlayer_->setToneBrightness(s.toneBrightness());
    audioPlayer_->setRoom(s.spatialAudio());
    // Chips only where there are windows to show them in.
    const bool cast = shell_ && s.visualizerEnabled();
    keyCastOn_.store(cast, std::memory_order_relaxed);
    keyCast_->setShortcutsOnly(s.visualizerShortcutsOnly());
    if (!cast)
        keyCast_->clear();

    // The output device only when it changed, so unrelated changes never move the stream.
    std::optional<std::string> uid;
    if (s.outputDeviceUID())
        uid = s.outputDeviceUID()->toStdString();
    if (!appliedOutputUID_ || *appliedOutputUID_ != uid) {
        const bool first = !appliedOutputUID_;
        appliedOutputUID_ = uid;
        // At start the stream already follows the default; only a named device needs a move.
        if (!first || uid)
            audioPlayer_->setOutputDevice(uid);
    }

    if (const auto selected = s.selectedPackId()) {
        // A kit that is not installed leaves no kit loaded: asking again changes nothing.
        const Soundpack* pack = packStore_->find(selected->toStdString());
        if (soundEngine_->currentPackId() != selected->toStdString() &&
            (pack || soundEngine_->currentPackId()))
            soundEngine_->loadPack(pack);
    }
    const MouseSoundOption mouse = MouseSoundOption::parse(s.mouseSoundId().toStdString());
    if (const auto* kit = std::get_if<std::string>(&mouse.choice))
        soundEngine_->useMouseKit(*kit);

    // A new sleep volume takes effect at once while quiet.
    if (sleepMonitor_->isSleeping())
        audioPlayer_->setDuck(true, s.sleepVolume());

    if (shell_)
        shell_->menuBar().refresh();
}

void AppDelegate::sleepChanged(bool isSleeping, const std::optional<QString>& reason) {
    audioPlayer_->setDuck(isSleeping, settings_->sleepVolume());
    if (shell_) {
        shell_->panelModel().setSleepReason(isSleeping ? reason.value_or(QString()) : QString());
        shell_->menuBar().refresh();
    }
    Q_EMIT sleepingChanged(isSleeping);
}

void AppDelegate::showPanel() {
    qCInfo(lcApp, "show panel");
    if (!shell_) {
        qCInfo(lcApp, "no panel: Tappix runs without windows");
        return;
    }
    shell_->menuBar().showPanel(MenuBarController::Placement::corner);
}

void AppDelegate::openSettings(const QString& page) {
    qCInfo(lcApp, "open settings on \"%s\"", qPrintable(page));
    if (!page.isEmpty())
        settings_->setLastSettingsPage(page);
    if (!shell_) {
        qCInfo(lcApp, "no settings window: Tappix runs without windows");
        return;
    }
    shell_->showSettings();
}

void AppDelegate::reopen() {
    qCInfo(lcApp, "reopen: the settings window on its last page");
    openSettings();
}

void AppDelegate::showOnboarding() {
    qCInfo(lcApp, "show the first-run window");
    if (!shell_) {
        qCInfo(lcApp, "no first-run window: Tappix runs without windows");
        return;
    }
    shell_->showOnboarding();
}

void AppDelegate::finishOnboarding() {
    if (settings_->hasSeenWelcome())
        return;
    settings_->setHasSeenWelcome(true);
    // Show the user where Tappix lives now, once the first-run window has gone.
    QPointer<AppDelegate> self = this;
    scheduler_.schedule(kShowPanelAfterOnboarding, [self] {
        if (self && self->shell_ && !self->shutDown_ && self->settings_->showMenuBarIcon() &&
            self->shell_->menuBar().hasTray())
            self->shell_->menuBar().showPanel();
    });
}

void AppDelegate::permissionTick() {
    const bool possible = captureIsPossible_ && captureIsPossible_();
    if (!possible)
        checkAccess();
    if (possible == wasTrusted_)
        return;
    wasTrusted_ = possible;
    if (possible) {
        qCInfo(lcApp, "key capture became possible; starting");
        startCapture();
    } else {
        qCWarning(lcApp, "key capture is no longer possible; stopping");
        keyService_->stop();
    }
    // The panel asks for access while keys cannot be heard.
    if (shell_)
        shell_->panelModel().setCaptureIsPossible(possible);
}

void AppDelegate::checkAccess() {
    if (!keyboardAccess_ || shutDown_ || restart_ != Restart::none)
        return;
    const KeyboardAccess access = keyboardAccess_();
    if (access.state != KeyboardAccess::State::memberNotInSession)
        return;
    const QString group = QString::fromStdString(access.group);
    // A member by the database whose session predates it: a process started with the
    // group hears keys now, without logging out. Once only: a Tappix that was itself
    // started that way and still lacks the group leaves it to the next login.
    if (tookOver_ || !startWithGroup_) {
        qCWarning(lcApp, "in the group %s but this process lacks it; it comes with the next login",
                  qPrintable(group));
        setRestart(Restart::failed);
        return;
    }
    qCInfo(lcApp, "in the group %s since this session started: starting again with it",
           qPrintable(group));
    setRestart(Restart::starting);
    if (!startWithGroup_(group)) {
        setRestart(Restart::failed);
        return;
    }
    QPointer<AppDelegate> self = this;
    scheduler_.schedule(kTakeOverWait, [self] {
        if (self && self->restart_ == Restart::starting) {
            qCWarning(lcApp, "the Tappix started with the new group never took over; "
                             "the group comes with the next login");
            self->setRestart(Restart::failed);
        }
    });
}

void AppDelegate::setRestart(Restart restart) {
    restart_ = restart;
    if (shell_)
        shell_->onboarding().setRestart(restart);
}

void AppDelegate::startCapture() {
    // Modifiers held when capture last stopped never sent their key-ups.
    keyService_->post([this] { shortcutMatcher_.reset(); });
    keyService_->start();
    // Possible but refused this time (a display busy at log-in, a device in flux):
    // the next poll tries again rather than believing capture runs.
    if (keyService_->backend() == KeyEventService::Backend::stopped) {
        qCWarning(lcApp, "key capture could not start; trying again in 2 s");
        wasTrusted_ = false;
    }
}

void AppDelegate::shutdown() {
    if (shutDown_)
        return;
    shutDown_ = true;
    permissionTimer_.stop();
    // No event may reach a service once it starts going away: stop capture, clear the
    // callbacks and let the queue run dry before anything else.
    keyService_->stop();
    keyService_->setMouseCapture(false);
    keyService_->setOnKeyEvent({});
    keyService_->setOnMouseEvent({});
    keyService_->drain();
    // Counts and key-downs already on their way to the statistics still count.
    takeStatistics(false);
    keyCast_->clear();
    settings_->flushStats();
    sleepMonitor_->stop();
    preferences_->sync();
    qCInfo(lcApp, "stopped");
}

} // namespace tappix

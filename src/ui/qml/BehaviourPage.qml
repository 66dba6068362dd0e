import QtQuick
import QtQuick.Layouts

// How Tappix lives on the desktop, and when it keeps quiet.
SettingsScroll {
    id: page
    required property var settings
    required property var typing
    required property var kits
    required property var mixes
    required property var models
    readonly property var behaviour: models.behaviour

    title: "Behaviour"
    subtitle: "How Tappix lives on your desktop, and when it keeps quiet."

    SettingsSection {
        theme: page.theme
        title: "Tray"
        SwitchRow {
            first: true
            theme: page.theme
            title: "Show in tray"
            note: "With the icon hidden, open Tappix again from your applications to get back here — and quit."
            on: page.settings.showMenuBarIcon
            onFlipped: value => page.settings.showMenuBarIcon = value
        }
        SwitchRow {
            theme: page.theme
            title: "Keep icon bright when muted"
            on: page.settings.menuIconDimDisabled
            onFlipped: value => page.settings.menuIconDimDisabled = value
        }
        ChoiceRow {
            theme: page.theme
            title: "Clicking the tray icon"
            options: [{ value: false, label: "Shows menu" }, { value: true, label: "Toggles sound" }]
            current: page.settings.clickTogglesSound
            onChosen: value => page.settings.clickTogglesSound = value
        }
        SwitchRow {
            theme: page.theme
            title: "Preview when switching sounds"
            on: !page.settings.switchPreviewDisabled
            onFlipped: value => page.settings.switchPreviewDisabled = !value
        }
    }

    SettingsSection {
        theme: page.theme
        title: "Shortcut and start-up"
        SettingsRow {
            first: true
            theme: page.theme
            title: "Toggle keystroke sounds"
            note: "Works in every app. Tappix only listens, so a combination your desktop also uses still works there."
            ShortcutRecorder {
                theme: page.theme
                settings: page.settings
                behaviour: page.behaviour
            }
        }
        SwitchRow {
            theme: page.theme
            title: "Launch at login"
            note: page.behaviour.launchAtLoginProblem
            on: page.behaviour.launchAtLogin
            onFlipped: value => page.behaviour.setLaunchAtLogin(value)
        }
        SettingsRow {
            theme: page.theme
            title: "Check for updates automatically"
            note: page.behaviour.updateStatus || "Once a day. Tappix tells you about a new version; it never installs anything."
            RowLayout {
                spacing: 10
                ThemedButton {
                    theme: page.theme
                    text: "Check Now"
                    onClicked: page.behaviour.checkForUpdates()
                }
                ThemedSwitch {
                    theme: page.theme
                    on: page.settings.automaticUpdateChecks
                    onFlipped: value => page.settings.automaticUpdateChecks = value
                    Accessible.name: "Check for updates automatically"
                    Layout.preferredWidth: 44
                }
            }
        }
    }

    SettingsSection {
        theme: page.theme
        title: "Sleep"
        SwitchRow {
            first: true
            theme: page.theme
            title: "Sleep automatically"
            note: "Drop to the volume below when the moment calls for quiet"
            on: page.settings.sleepEnabled
            onFlipped: value => page.settings.sleepEnabled = value
        }
        SwitchRow {
            theme: page.theme
            enabled: page.settings.sleepEnabled
            title: "The microphone is live"
            on: page.settings.sleepTriggerMicrophone
            onFlipped: value => page.settings.sleepTriggerMicrophone = value
        }
        SwitchRow {
            theme: page.theme
            enabled: page.settings.sleepEnabled
            title: "The camera is on"
            on: page.settings.sleepTriggerCamera
            onFlipped: value => page.settings.sleepTriggerCamera = value
        }
        SwitchRow {
            theme: page.theme
            enabled: page.settings.sleepEnabled
            title: "Headphones are connected"
            on: page.settings.sleepTriggerHeadphones
            onFlipped: value => page.settings.sleepTriggerHeadphones = value
        }
        SwitchRow {
            theme: page.theme
            enabled: page.settings.sleepEnabled
            title: "Playing through built-in speakers"
            on: page.settings.sleepTriggerSpeakers
            onFlipped: value => page.settings.sleepTriggerSpeakers = value
        }
        SwitchRow {
            theme: page.theme
            enabled: page.settings.sleepEnabled && page.behaviour.windowTriggersAvailable
            title: "A full-screen app is in front"
            note: page.behaviour.windowTriggersAvailable ? "A game, a film, a presentation" : ""
            // Shown off where it cannot work; the stored choice is kept for later.
            on: page.settings.sleepTriggerFullScreen && page.behaviour.windowTriggersAvailable
            onFlipped: value => page.settings.sleepTriggerFullScreen = value
        }
        SwitchRow {
            theme: page.theme
            enabled: page.settings.sleepEnabled && page.behaviour.windowTriggersAvailable
            title: "One of these apps is in front"
            on: page.settings.sleepTriggerApps && page.behaviour.windowTriggersAvailable
            onFlipped: value => page.settings.sleepTriggerApps = value
        }
        Text {
            visible: !page.behaviour.windowTriggersAvailable
            text: page.behaviour.windowTriggersProblem
            color: page.theme.mutedText
            font.pixelSize: 11
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Layout.leftMargin: 14
            Layout.rightMargin: 14
            Layout.bottomMargin: 10
            Accessible.name: text
        }
        SleepAppList {
            visible: page.behaviour.windowTriggersAvailable
            enabled: page.settings.sleepEnabled && page.settings.sleepTriggerApps
            theme: page.theme
            behaviour: page.behaviour
        }
        SliderRow {
            theme: page.theme
            enabled: page.settings.sleepEnabled
            title: "Volume while sleeping"
            level: page.settings.sleepVolume
            onChangedByUser: value => page.settings.sleepVolume = value
        }
        SwitchRow {
            theme: page.theme
            title: "Tell me when Tappix sleeps and wakes"
            on: page.settings.notificationsEnabled
            onFlipped: value => {
                page.settings.notificationsEnabled = value
                // Linux asks nothing: show one, so the user sees what they look like.
                if (value)
                    page.behaviour.sendTestNotification()
            }
        }
    }

    SettingsSection {
        theme: page.theme
        SettingsRow {
            first: true
            theme: page.theme
            title: "Quit Tappix"
            note: "Stops the sounds and closes the app. Ctrl+Q does the same."
            ThemedButton {
                theme: page.theme
                text: "Quit Tappix"
                onClicked: Qt.quit()
            }
        }
    }
}

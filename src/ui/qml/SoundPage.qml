import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Where the sound goes, how it is voiced, and which keys make it.
SettingsScroll {
    id: page
    required property var settings
    required property var typing
    required property var kits
    required property var mixes
    required property var models
    readonly property var devices: models.devices
    readonly property var kitImport: models.kitImport

    title: "Sound"
    subtitle: "Pick a switch and tune it."

    KitImportCard {
        id: kitCard
        theme: page.theme
        kits: page.kits
        kitImport: page.kitImport
    }

    SettingsSection {
        theme: page.theme
        title: "Output"
        SettingsRow {
            first: true
            theme: page.theme
            title: "Play sound through"
            note: !page.devices || page.devices.chosenLatencyMs < 0 ? ""
                  : page.devices.latencyIsHigh
                    ? "This output answers in " + Math.round(page.devices.chosenLatencyMs) + " ms, so keys will sound late on it (typical of Bluetooth)."
                    : "Answers in " + Math.round(page.devices.chosenLatencyMs) + " ms."
            DevicePicker {
                theme: page.theme
                devices: page.devices
                enabled: page.devices !== undefined
            }
        }
    }

    SettingsSection {
        theme: page.theme
        title: "Voice"
        ColumnLayout {
            spacing: 8
            Layout.fillWidth: true
            Layout.margins: 12
            Text {
                text: "Drag to voice your board. Left is deeper, up is brighter. Double-click to reset."
                color: page.theme.mutedText
                font.pixelSize: 11
                wrapMode: Text.WordWrap
                Layout.fillWidth: true
                Accessible.name: text
            }
            TonePad {
                theme: page.theme
                settings: page.settings
                Layout.fillWidth: true
            }
        }
    }

    SettingsSection {
        theme: page.theme
        title: "Keystroke sounds"
        SwitchRow {
            first: true
            theme: page.theme
            title: "Key release sounds"
            note: "The quieter half of a keypress, on the way back up"
            on: page.settings.keyUpSoundsEnabled
            onFlipped: value => page.settings.keyUpSoundsEnabled = value
        }
        SwitchRow {
            theme: page.theme
            title: "Modifier key sounds"
            on: page.settings.modifierSoundsEnabled
            onFlipped: value => page.settings.modifierSoundsEnabled = value
        }
        SwitchRow {
            theme: page.theme
            title: "Skip sounds that land within 10 ms"
            on: page.settings.ignoreRapidKeys
            onFlipped: value => page.settings.ignoreRapidKeys = value
        }
        SwitchRow {
            theme: page.theme
            title: "No two presses sound identical"
            on: page.settings.pitchVariation
            onFlipped: value => page.settings.pitchVariation = value
        }
        SwitchRow {
            theme: page.theme
            title: "A little air around each keystroke"
            on: page.settings.spatialAudio
            onFlipped: value => page.settings.spatialAudio = value
        }
        SwitchRow {
            theme: page.theme
            title: "Left keys sound left, right keys sound right"
            on: page.settings.stereoPanning
            onFlipped: value => page.settings.stereoPanning = value
        }
    }

    SettingsSection {
        theme: page.theme
        title: "Flourishes"
        SwitchRow {
            first: true
            theme: page.theme
            title: "Carriage-return ding"
            note: "A typewriter bell on ⏎"
            on: page.settings.dingOnReturn
            onFlipped: value => page.settings.dingOnReturn = value
        }
        SwitchRow {
            theme: page.theme
            title: "Mouse clicks"
            on: page.settings.mouseClickSounds
            onFlipped: value => page.settings.mouseClickSounds = value
        }
        ChoiceRow {
            theme: page.theme
            enabled: page.settings.mouseClickSounds
            title: "Click sound"
            note: page.settings.mouseSoundId === "match-keyboard" ? "Clicks borrow the voice of your switch kit" : ""
            options: [{ value: "match-keyboard", label: "Same as switch kit" },
                      { value: "synth-soft", label: "Rounded and quiet" },
                      { value: "synth-crisp", label: "Sharp and bright" }]
            current: page.settings.mouseSoundId
            onChosen: value => page.settings.mouseSoundId = value
        }
    }

    // A pack's folder or .zip dropped anywhere on the page is imported.
    DropArea {
        id: drop
        parent: page
        anchors.fill: parent
        onEntered: drag => drag.accepted = page.kitImport.accepts(drag.urls)
        onDropped: drop => {
            if (page.kitImport.importPack(drop.urls[0]))
                drop.accept(Qt.CopyAction)
        }

        Rectangle {
            anchors.fill: parent
            anchors.margins: 6
            visible: drop.containsDrag
            radius: 12
            color: page.theme.card
            opacity: 0.94
            border.width: 2
            border.color: page.theme.accent
            Text {
                anchors.centerIn: parent
                text: "Drop to import this pack as a kit"
                color: page.theme.text
                font.pixelSize: 15
                font.weight: Font.DemiBold
            }
        }
    }
}

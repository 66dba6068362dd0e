import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Headings are Text, not Label: Qt 6.4 reports a Label as a plain label whatever
// role it is given.
// The panel's main page.
ColumnLayout {
    id: page
    required property var settings
    required property var theme
    required property var panel
    required property var kits
    required property var mixes
    required property var typing

    function focusFirst() { soundsSwitch.forceActiveFocus() }

    readonly property string shortcutText: settings.toggleSoundsShortcut
    readonly property string caption: panel.sleepReason !== ""
        ? "Sleeping · " + panel.sleepReason
        : (settings.isEnabled ? "Sounds on" : "Sounds off") + (shortcutText ? " · " + shortcutText : "")

    spacing: 4

    // Header: name, state, and the switch that turns every sound on or off.
    RowLayout {
        spacing: 10
        Layout.fillWidth: true
        Layout.leftMargin: 4
        Layout.bottomMargin: 6
        Image {
            source: "qrc:/Tappix/Ui/icons/tappix.svg"
            sourceSize: Qt.size(34, 34)
            Layout.preferredWidth: 34
            Layout.preferredHeight: 34
            Accessible.ignored: true
        }
        ColumnLayout {
            spacing: 1
            Layout.fillWidth: true
            Text {
                text: "Tappix"
                color: page.theme.text
                font.pixelSize: 15
                font.bold: true
                Accessible.role: Accessible.Heading
                Accessible.name: text
            }
            Label {
                text: page.caption
                color: page.panel.sleepReason !== "" ? page.theme.accent : page.theme.mutedText
                font.pixelSize: 12
                elide: Text.ElideRight
                Layout.fillWidth: true
                Accessible.role: Accessible.StaticText
                Accessible.name: text
            }
        }
        ThemedSwitch {
            id: soundsSwitch
            theme: page.theme
            on: page.settings.isEnabled
            onFlipped: value => page.settings.isEnabled = value
            Accessible.name: "Sounds"
            Layout.preferredWidth: 44
        }
    }

    PanelRow {
        visible: !page.panel.captureIsPossible
        theme: page.theme
        text: "Turn on sound for typing"
        symbol: "warning"
        themeSymbol: "dialog-warning-symbolic"
        attention: true
        chevron: true
        onClicked: page.panel.requestPermission()
        Layout.fillWidth: true
    }

    Card {
        theme: page.theme
        Layout.fillWidth: true
        Layout.preferredHeight: 52
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 12
            anchors.rightMargin: 12
            spacing: 10
            Symbol {
                symbol: page.settings.volume < 0.01 ? "speaker-slash" : "speaker-wave"
                themeName: page.settings.volume < 0.01 ? "audio-volume-muted-symbolic"
                                                       : "audio-volume-high-symbolic"
                size: 16
                color: page.theme.text
            }
            ThemedSlider {
                id: volume
                theme: page.theme
                from: 0
                to: 1
                level: page.settings.volume
                onChangedByUser: value => page.settings.volume = value
                Accessible.name: "Volume"
                Layout.fillWidth: true
            }
            Label {
                text: Math.round(page.settings.volume * 100) + "%"
                color: page.theme.mutedText
                font.pixelSize: 12
                horizontalAlignment: Text.AlignRight
                Layout.preferredWidth: 36
                Accessible.name: "Volume " + text
            }
        }
    }

    Item { Layout.preferredHeight: 4 }

    PanelRow {
        theme: page.theme
        text: "Sound kit"
        value: page.panel.currentKitName
        symbol: "symbol-keyboard"
        themeSymbol: "input-keyboard-symbolic"
        chevron: true
        onClicked: page.panel.page = "kits"
        Layout.fillWidth: true
    }
    PanelRow {
        theme: page.theme
        text: "Mix"
        value: page.mixes.activeName
        symbol: "sliders"
        themeSymbol: "preferences-other-symbolic"
        chevron: true
        onClicked: page.panel.page = "mixes"
        Layout.fillWidth: true
    }
    PanelRow {
        theme: page.theme
        text: "Design a switch"
        symbol: "waveform"
        themeSymbol: "audio-x-generic-symbolic"
        chevron: true
        onClicked: page.panel.openPage("create")
        Layout.fillWidth: true
    }

    Item { Layout.preferredHeight: 4 }

    // Typing at a glance: the burst under way, else the last one. It takes the height the
    // rows above leave, so the page has no empty band when the permission row is absent.
    Card {
        id: typingCard
        theme: page.theme
        readonly property bool live: page.typing.isTyping
        readonly property bool hasBurst: live || page.typing.lastKeystrokes > 0
        readonly property real wpm: live ? page.typing.sessionWPM : page.typing.lastWPM
        readonly property real accuracy: live ? page.typing.sessionAccuracy : page.typing.lastAccuracy
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.minimumHeight: 64
        Layout.bottomMargin: 8
        Accessible.role: Accessible.Grouping
        Accessible.name: "Typing"

        RowLayout {
            anchors.fill: parent
            anchors.margins: 12
            spacing: 12
            ColumnLayout {
                spacing: 2
                Layout.fillWidth: true
                Text {
                    text: typingCard.live ? "Typing now" : typingCard.hasBurst ? "Last burst" : "Waiting for keystrokes"
                    color: page.theme.text
                    font.pixelSize: 13
                    font.weight: Font.DemiBold
                    Accessible.name: text
                }
                Text {
                    text: typingCard.hasBurst ? "Best " + Math.round(page.settings.bestWPM) + " wpm"
                                              : "Type anywhere to see your speed."
                    color: page.theme.mutedText
                    font.pixelSize: 11
                    elide: Text.ElideRight
                    Layout.fillWidth: true
                    Accessible.name: text
                }
            }
            Repeater {
                model: typingCard.hasBurst ? [
                    { label: "wpm", value: Math.round(typingCard.wpm).toString() },
                    { label: "accuracy", value: Math.round(typingCard.accuracy * 100) + "%" }
                ] : []
                delegate: ColumnLayout {
                    required property var modelData
                    spacing: 0
                    Text {
                        text: modelData.value
                        color: page.theme.accent
                        font.pixelSize: 18
                        font.bold: true
                        Layout.alignment: Qt.AlignRight
                        Accessible.name: modelData.label + " " + text
                    }
                    Text {
                        text: modelData.label
                        color: page.theme.mutedText
                        font.pixelSize: 10
                        Layout.alignment: Qt.AlignRight
                    }
                }
            }
        }
    }

    Rectangle {
        color: page.theme.divider
        Layout.fillWidth: true
        Layout.preferredHeight: 1
    }
    RowLayout {
        spacing: 4
        Layout.fillWidth: true
        PanelRow {
            theme: page.theme
            text: "Settings"
            symbol: "gear"
            themeSymbol: "preferences-system-symbolic"
            onClicked: page.panel.openSettings()
            Layout.fillWidth: true
        }
        PanelRow {
            theme: page.theme
            text: "Quit"
            symbol: "power"
            themeSymbol: "system-shutdown-symbolic"
            onClicked: page.panel.quit()
            Layout.preferredWidth: 90
        }
    }
}

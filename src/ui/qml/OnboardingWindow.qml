import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The first-run window: one step at a time, as the model works it out. Moving Tappix
// somewhere the desktop remembers, then letting it hear the keys, then trying it.
// Its button and its close box both end the first run.
Window {
    id: root
    required property var settings
    required property var theme
    required property var typing
    required property var panel
    required property var kits
    required property var mixes
    required property var models
    readonly property var model: models.onboarding
    readonly property string step: model.step

    title: "Welcome to Tappix"
    width: 470
    height: 570
    minimumWidth: 470
    maximumWidth: 470
    minimumHeight: 570
    maximumHeight: 570
    color: theme.background
    visible: false

    onClosing: model.finish()
    // The try-it field takes the keys as soon as it shows.
    onStepChanged: if (step === "ready") tryField.forceActiveFocus()
    onVisibleChanged: if (visible && step === "ready") tryField.forceActiveFocus()

    // Inline components see none of the window's ids: the theme comes in by hand.
    component Heading: Text {
        required property var theme
        color: theme.text
        font.pixelSize: 21
        font.bold: true
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        Layout.fillWidth: true
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }
    component Body: Text {
        required property var theme
        color: theme.text
        font.pixelSize: 13
        lineHeight: 1.15
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        Layout.fillWidth: true
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
    component Note: Body {
        color: theme.mutedText
        font.pixelSize: 12
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 24
        anchors.bottomMargin: 28
        spacing: 14

        Item { Layout.fillHeight: true }

        Image {
            source: "qrc:/Tappix/Ui/icons/tappix.svg"
            sourceSize: Qt.size(72, 72)
            Layout.preferredWidth: 72
            Layout.preferredHeight: 72
            Layout.alignment: Qt.AlignHCenter
            Layout.bottomMargin: 6
            Accessible.role: Accessible.Graphic
            Accessible.name: "Tappix"
        }

        // Run from a temporary or removable place.
        ColumnLayout {
            visible: root.step === "move"
            spacing: 14
            Layout.fillWidth: true

            Heading { theme: root.theme; text: "Move Tappix off the temporary drive first" }
            Body {
                theme: root.theme
                font.pixelSize: 12
                text: "Tappix is running from a temporary or removable place, and your\n"
                      + "desktop will not remember it there. Move Tappix into your home\n"
                      + "folder or install it, then open it from there."
            }
            RowLayout {
                spacing: 10
                Layout.alignment: Qt.AlignHCenter
                Layout.topMargin: 8
                ThemedButton {
                    theme: root.theme
                    prominent: true
                    text: "Open Home Folder"
                    implicitHeight: 34
                    onClicked: root.model.openHome()
                }
                ThemedButton {
                    theme: root.theme
                    text: "Show me Tappix"
                    implicitHeight: 34
                    onClicked: root.model.showTappix()
                }
            }
            Note {
                theme: root.theme
                text: "This window will move on by itself once you reopen Tappix from\n"
                      + "its new place."
                Layout.topMargin: 8
            }
        }

        // Keys cannot be heard yet.
        ColumnLayout {
            visible: root.step === "permission"
            spacing: 14
            Layout.fillWidth: true

            Heading { theme: root.theme; text: "Let Tappix hear your keys" }
            Body {
                theme: root.theme
                text: "Tappix needs to read the keyboard to hear which key moved, never "
                      + "what you type."
            }
            Card {
                theme: root.theme
                Layout.fillWidth: true
                Layout.topMargin: 4
                implicitHeight: guide.implicitHeight + 32

                ColumnLayout {
                    id: guide
                    anchors.fill: parent
                    anchors.margins: 16
                    spacing: 10
                    Repeater {
                        model: ["1.  Open a terminal", "2.  Run  " + root.model.command,
                                "3.  Log out and back in"]
                        Text {
                            required property string modelData
                            text: modelData
                            color: root.theme.text
                            font.pixelSize: 13
                            textFormat: Text.PlainText
                            wrapMode: Text.WordWrap
                            Layout.fillWidth: true
                            Accessible.role: Accessible.StaticText
                            Accessible.name: text
                        }
                    }
                }
            }
            RowLayout {
                spacing: 10
                Layout.alignment: Qt.AlignHCenter
                Layout.topMargin: 4
                ThemedButton {
                    theme: root.theme
                    prominent: true
                    text: "Copy Command"
                    implicitHeight: 34
                    onClicked: root.model.copyCommand()
                }
                Text {
                    visible: root.model.copied
                    text: "Copied"
                    color: root.theme.mutedText
                    font.pixelSize: 12
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
            }
            Note {
                theme: root.theme
                text: "This window moves on by itself once Tappix can hear your keys."
                Layout.topMargin: 4
            }
        }

        // Keys can be heard: try it, and where Tappix lives from now on.
        ColumnLayout {
            visible: root.step === "ready"
            spacing: 14
            Layout.fillWidth: true

            Heading { theme: root.theme; text: "Tappix is ready" }
            Body { theme: root.theme; text: "Every key you press now makes a sound. Give it a try." }
            TextField {
                id: tryField
                placeholderText: "Type here to hear it"
                placeholderTextColor: root.theme.mutedText
                color: root.theme.text
                selectionColor: root.theme.accent
                selectedTextColor: root.theme.onAccent
                font.pixelSize: 14
                Layout.fillWidth: true
                Accessible.name: "Type here to hear it"
                background: Rectangle {
                    implicitHeight: 38
                    radius: 8
                    color: root.theme.card
                    border.width: tryField.activeFocus ? 2 : 1
                    border.color: tryField.activeFocus ? root.theme.accent : root.theme.divider
                }
            }
            Card {
                theme: root.theme
                Layout.fillWidth: true
                Layout.topMargin: 6
                implicitHeight: home.implicitHeight + 28

                ColumnLayout {
                    id: home
                    anchors.fill: parent
                    anchors.margins: 14
                    spacing: 6
                    Text {
                        text: root.model.trayAvailable ? "Tappix lives in your tray"
                                                       : "Tappix keeps running"
                        color: root.theme.text
                        font.pixelSize: 14
                        font.bold: true
                        Layout.fillWidth: true
                        Accessible.role: Accessible.Heading
                        Accessible.name: text
                    }
                    Text {
                        readonly property string plain: root.model.trayAvailable
                              ? "Click that icon for volume, switch kits and settings.\n"
                                + "Quit anytime with Ctrl+Q, or from its menu → Quit Tappix."
                              : "Open Tappix again from your applications, or run  "
                                + "tappix --panel, for volume, kits and settings."
                        // The command never breaks at its dashes.
                        text: root.model.trayAvailable ? plain
                              : "Open Tappix again from your applications, or run&nbsp; "
                                + "<nobr>tappix --panel</nobr>, for volume, kits and settings."
                        textFormat: root.model.trayAvailable ? Text.PlainText : Text.RichText
                        color: root.theme.mutedText
                        font.pixelSize: 12
                        lineHeight: 1.15
                        wrapMode: Text.WordWrap
                        Layout.fillWidth: true
                        Accessible.role: Accessible.StaticText
                        Accessible.name: plain
                    }
                }
            }
        }

        Item { Layout.fillHeight: true }

        ThemedButton {
            visible: root.step === "ready"
            theme: root.theme
            objectName: "doneButton"
            prominent: true
            text: "Done"
            implicitWidth: 110
            implicitHeight: 34
            Layout.alignment: Qt.AlignRight
            onClicked: root.close()
        }
    }

    WindowShortcuts { panel: root.panel }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The first-run window: the mark and the promise on top, and below them one step at a
// time, as the model works it out. Moving Tappix somewhere the desktop remembers, then
// letting it hear the keys, then trying it. Only the step on screen exists, so a screen
// reader hears that step and no other. Its button and its close box both end the first run.
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
    // The try-it field takes the keys as soon as it shows, and the mark springs in.
    onVisibleChanged: if (visible && body.item && body.item.shown) body.item.shown()

    // Inline components see none of the window's ids: the theme comes in by hand.
    component Heading: Text {
        required property var theme
        color: theme.text
        font.pixelSize: 17
        font.weight: Font.DemiBold
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
        // Hidden is silent: a reader hears what shows and nothing else.
        Accessible.ignored: !visible
    }
    component Note: Body {
        color: theme.mutedText
        font.pixelSize: 12
    }
    component StepButton: ThemedButton {
        implicitHeight: 34
        implicitWidth: Math.max(120, contentItem.implicitWidth + 32)
        Accessible.ignored: !visible
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.leftMargin: 30
        anchors.rightMargin: 30
        anchors.topMargin: 38
        anchors.bottomMargin: 30
        spacing: 0

        // The common header.
        Image {
            source: "qrc:/Tappix/Ui/icons/tappix.svg"
            sourceSize: Qt.size(64, 64)
            Layout.preferredWidth: 64
            Layout.preferredHeight: 64
            Layout.alignment: Qt.AlignHCenter
            Accessible.ignored: true
        }
        Text {
            text: "Tappix"
            color: root.theme.text
            font.pixelSize: 28
            font.bold: true
            horizontalAlignment: Text.AlignHCenter
            Layout.fillWidth: true
            Layout.topMargin: 10
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        Note {
            theme: root.theme
            text: "Give your keyboard a voice.\nEvery key, every app."
            font.pixelSize: 13
            Layout.topMargin: 4
        }

        Loader {
            id: body
            sourceComponent: root.step === "move" ? moveStep
                             : root.step === "permission" ? permissionStep
                             : root.step === "ready" ? readyStep : null
            Layout.fillWidth: true
            Layout.topMargin: 26
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
            Accessible.ignored: !visible
            onClicked: root.close()
        }
    }

    // Run from a temporary or removable place.
    Component {
        id: moveStep
        ColumnLayout {
            spacing: 14

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
                Layout.topMargin: 6
                StepButton {
                    theme: root.theme
                    prominent: true
                    text: "Open Home Folder"
                    onClicked: root.model.openHome()
                }
                StepButton {
                    theme: root.theme
                    text: "Show me Tappix"
                    onClicked: root.model.showTappix()
                }
            }
            Note {
                theme: root.theme
                text: "This window will move on by itself once you reopen Tappix from\n"
                      + "its new place."
                Layout.topMargin: 6
            }
        }
    }

    // Keys cannot be heard yet: the one-button way, and the terminal's beside it.
    Component {
        id: permissionStep
        ColumnLayout {
            spacing: 14
            readonly property bool waitingForRestart: root.model.access === "memberNotInSession"

            Body {
                theme: root.theme
                font.pixelSize: 12
                text: "Tappix needs permission to play a sound the moment you press\n"
                      + "a key. It never reads what you type — only that a key moved.\n"
                      + "Nothing is stored. Nothing leaves your computer."
            }
            Card {
                visible: !parent.waitingForRestart
                theme: root.theme
                Layout.fillWidth: true
                implicitHeight: guide.implicitHeight + 28

                ColumnLayout {
                    id: guide
                    anchors.fill: parent
                    anchors.margins: 14
                    anchors.leftMargin: 18
                    spacing: 8
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
                            Accessible.ignored: !visible
                        }
                    }
                }
            }
            RowLayout {
                visible: !parent.waitingForRestart
                spacing: 10
                Layout.alignment: Qt.AlignHCenter
                StepButton {
                    visible: root.model.canAskForAccess
                    enabled: !root.model.asking
                    theme: root.theme
                    prominent: true
                    text: "Allow Keyboard Access…"
                    onClicked: root.model.allowAccess()
                }
                StepButton {
                    theme: root.theme
                    prominent: !root.model.canAskForAccess
                    text: "Copy Command"
                    onClicked: root.model.copyCommand()
                }
            }
            // Where the request stands: one line, empty while there is nothing to say.
            Note {
                readonly property string says: root.model.accessNote !== "" ? root.model.accessNote
                                               : root.model.copied ? "Copied. Paste it into a terminal."
                                               : ""
                visible: says !== ""
                theme: root.theme
                text: says
                color: root.model.asking || parent.waitingForRestart ? root.theme.text
                                                                     : root.theme.mutedText
            }
            Note {
                visible: root.model.canAskForAccess
                theme: root.theme
                text: "Joining the " + root.model.group + " group lets every program you run "
                      + "read the keyboards, not only Tappix."
            }
            Note {
                visible: !root.model.canAskForAccess && !parent.waitingForRestart
                theme: root.theme
                text: "This window moves on by itself once Tappix can hear your keys."
            }
        }
    }

    // Keys can be heard: try it, and where Tappix lives from now on.
    Component {
        id: readyStep
        ColumnLayout {
            id: ready
            spacing: 0

            function shown() {
                tryField.forceActiveFocus()
                springIn.restart()
            }
            Component.onCompleted: if (root.visible) shown()

            RowLayout {
                spacing: 8
                Layout.alignment: Qt.AlignHCenter
                Symbol {
                    id: check
                    symbol: "checkmark-circle"
                    themeName: ""
                    size: 24
                    color: root.theme.accent
                    scale: 1
                }
                Heading {
                    theme: root.theme
                    text: "You're all set"
                    font.pixelSize: 20
                    Layout.fillWidth: false
                }
            }
            NumberAnimation {
                id: springIn
                target: check
                property: "scale"
                from: 0.2
                to: 1
                duration: 520
                easing.type: Easing.OutBack
                easing.overshoot: 2.6
            }

            TextField {
                id: tryField
                placeholderText: "Try typing here…"
                placeholderTextColor: root.theme.mutedText
                color: root.theme.text
                selectionColor: root.theme.accent
                selectedTextColor: root.theme.onAccent
                font.pixelSize: 14
                leftPadding: 12
                rightPadding: 12
                Layout.fillWidth: true
                Layout.topMargin: 18
                Accessible.name: placeholderText
                background: Rectangle {
                    implicitHeight: 38
                    radius: 8
                    color: root.theme.card
                    border.width: tryField.activeFocus ? 2 : 1
                    border.color: tryField.activeFocus ? root.theme.accent : root.theme.divider
                }
            }
            Note {
                theme: root.theme
                text: "It works in every app. This field is just for show."
                Layout.topMargin: 8
            }

            // Where Tappix lives: an arrow bobbing up at the tray, the icon found there.
            ColumnLayout {
                spacing: 0
                Layout.fillWidth: true
                Layout.topMargin: 26

                Symbol {
                    visible: root.model.trayAvailable
                    symbol: "arrow-up"
                    themeName: ""
                    size: 18
                    color: root.theme.accent
                    Layout.alignment: Qt.AlignHCenter
                    transform: Translate { id: bob }
                    SequentialAnimation {
                        running: root.visible && root.model.trayAvailable
                        loops: Animation.Infinite
                        NumberAnimation {
                            target: bob; property: "y"; to: -5; duration: 650
                            easing.type: Easing.InOutSine
                        }
                        NumberAnimation {
                            target: bob; property: "y"; to: 0; duration: 650
                            easing.type: Easing.InOutSine
                        }
                    }
                }
                Image {
                    source: "qrc:/Tappix/Ui/icons/keyboard-fill.svg"
                    sourceSize: Qt.size(30, 30)
                    Layout.preferredWidth: 30
                    Layout.preferredHeight: 30
                    Layout.alignment: Qt.AlignHCenter
                    Layout.topMargin: 4
                    Accessible.ignored: true
                }
                Text {
                    text: root.model.trayAvailable ? "Tappix lives in your tray"
                                                   : "Tappix keeps running"
                    color: root.theme.text
                    font.pixelSize: 14
                    font.bold: true
                    horizontalAlignment: Text.AlignHCenter
                    Layout.fillWidth: true
                    Layout.topMargin: 8
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
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.WordWrap
                    Layout.fillWidth: true
                    Layout.topMargin: 4
                    Accessible.role: Accessible.StaticText
                    Accessible.name: plain
                }
            }
        }
    }

    WindowShortcuts { panel: root.panel }
}

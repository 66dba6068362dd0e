import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts

// The Sound page's kit card: the kit that plays and the others to choose from, and the
// import of a pack made for another keyboard-sound program, with what the import said
// and what it left out.
SettingsSection {
    id: card
    required property var kits
    required property var kitImport

    // Opens the file dialog (the page's drop target shares the import itself).
    function chooseFile() {
        dialog.open()
    }

    title: "Kit"

    SettingsRow {
        first: true
        theme: card.theme
        title: "Switch kit"
        Text {
            text: card.kits.currentName !== "" ? card.kits.currentName : "None"
            color: card.theme.text
            font.pixelSize: 13
            font.weight: Font.DemiBold
            elide: Text.ElideRight
            width: Math.min(implicitWidth, 260)
            Accessible.role: Accessible.StaticText
            Accessible.name: "Switch kit: " + text
        }
    }

    // The kits in a well of their own, so that it is seen to scroll apart from the page.
    Rectangle {
        color: card.theme.background
        radius: 8
        border.width: 1
        border.color: card.theme.divider
        Layout.fillWidth: true
        // About six kits show; the rest scroll.
        Layout.preferredHeight: 276
        Layout.leftMargin: 10
        Layout.rightMargin: 10
        Layout.bottomMargin: 10

        KitList {
            id: kitList
            anchors.fill: parent
            anchors.margins: 6
            theme: card.theme
            kits: card.kits
            showMode: ListView.Center
            alwaysShowScrollBar: true
            Component.onCompleted: showCurrent()
            Connections {
                target: card.kits
                // A kit chosen elsewhere (the panel, a save) is where the keyboard comes in.
                function onCurrentChanged() {
                    if (!kitList.activeFocus)
                        kitList.showCurrent()
                }
            }
        }
    }

    SettingsRow {
        theme: card.theme
        title: "Import a sound pack"
        note: "A .zip, or the config.json in a pack’s folder, from another keyboard-sound program. You can also drop a pack’s folder or .zip on this page."
        enabled: !card.kitImport.busy
        ThemedButton {
            id: importButton
            theme: card.theme
            text: "Import…"
            onClicked: card.chooseFile()
        }
    }

    // Made only while there is something to say: hidden items would still be read out.
    Loader {
        active: card.kitImport.busy || card.kitImport.status !== ""
        visible: active
        Layout.fillWidth: true
        Layout.leftMargin: 14
        Layout.rightMargin: 14
        Layout.bottomMargin: 12
        sourceComponent: report
    }

    Component {
        id: report
        ColumnLayout {
            spacing: 8

            Rectangle {
                color: card.theme.divider
                implicitHeight: 1
                Layout.fillWidth: true
                Layout.leftMargin: -2
                Layout.rightMargin: -2
                Layout.bottomMargin: 4
            }

            RowLayout {
                spacing: 8
                Layout.fillWidth: true
                Loader {
                    active: card.kitImport.busy
                    visible: active
                    sourceComponent: DesignerBusy {
                        theme: card.theme
                        label: "Importing"
                        running: true
                    }
                }
                Text {
                    text: card.kitImport.status
                    color: card.kitImport.failed ? card.theme.accent : card.theme.mutedText
                    font.pixelSize: 12
                    wrapMode: Text.WordWrap
                    Layout.fillWidth: true
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
            }

            Loader {
                active: card.kitImport.problems.length > 0
                visible: active
                Layout.fillWidth: true
                sourceComponent: ColumnLayout {
                    spacing: 8
                    Text {
                        readonly property int count: card.kitImport.problems.length
                        text: card.kitImport.failed ? "What was wrong with it:"
                              : count === 1 ? "One part could not be used:"
                              : count + " parts could not be used:"
                        color: card.theme.text
                        font.pixelSize: 12
                        font.weight: Font.DemiBold
                        Layout.fillWidth: true
                        Accessible.role: Accessible.StaticText
                        Accessible.name: text
                    }

                    Rectangle {
                        color: "transparent"
                        radius: 6
                        border.width: problemList.activeFocus ? 2 : 1
                        border.color: problemList.activeFocus ? card.theme.text : card.theme.divider
                        Layout.fillWidth: true
                        // At most about six lines show; the rest scroll.
                        Layout.preferredHeight: Math.min(problemList.contentHeight + 12, 132)

                        ListView {
                            id: problemList
                            anchors.fill: parent
                            anchors.margins: 6
                            clip: true
                            activeFocusOnTab: true
                            boundsBehavior: Flickable.StopAtBounds
                            keyNavigationEnabled: true
                            model: card.kitImport.problems
                            spacing: 4
                            // Always shown when the lines overflow, so a long list is seen to scroll.
                            ScrollBar.vertical: ScrollBar {
                                policy: problemList.contentHeight > problemList.height ? ScrollBar.AlwaysOn
                                                                                      : ScrollBar.AsNeeded
                            }
                            Accessible.role: Accessible.List
                            Accessible.name: "Import problems"
                            delegate: Item {
                                id: line
                                required property string modelData
                                required property int index
                                readonly property color ink: problemList.currentIndex === index
                                                             && problemList.activeFocus
                                                             ? card.theme.text : card.theme.mutedText
                                width: problemList.width - 12
                                implicitHeight: body.implicitHeight
                                Accessible.role: Accessible.ListItem
                                Accessible.name: modelData
                                Text {
                                    id: bullet
                                    text: "•"
                                    color: line.ink
                                    font.pixelSize: 11
                                }
                                Text {
                                    id: body
                                    anchors.left: bullet.right
                                    anchors.leftMargin: 5
                                    anchors.right: parent.right
                                    text: line.modelData
                                    color: line.ink
                                    font.pixelSize: 11
                                    wrapMode: Text.Wrap
                                }
                            }
                        }
                    }
                }
            }

            ThemedButton {
                visible: !card.kitImport.busy
                theme: card.theme
                text: "Dismiss"
                Layout.alignment: Qt.AlignRight
                onClicked: card.kitImport.dismiss()
            }
        }
    }

    FileDialog {
        id: dialog
        title: "Import a sound pack"
        currentFolder: card.kitImport.startFolder
        nameFilters: ["Sound packs (*.zip config.json)", "All files (*)"]
        onAccepted: card.kitImport.importPack(selectedFile)
    }
}

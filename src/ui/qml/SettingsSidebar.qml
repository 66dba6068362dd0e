import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The settings window's page list. Arrow keys move between pages.
Rectangle {
    id: sidebar
    required property var theme
    required property var pages
    property string current
    signal chosen(string id)

    color: theme.card
    implicitWidth: 200

    Rectangle {
        anchors.right: parent.right
        width: 1
        height: parent.height
        color: sidebar.theme.divider
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 12
        anchors.topMargin: 18
        spacing: 2

        RowLayout {
            spacing: 10
            Layout.leftMargin: 6
            Layout.bottomMargin: 14
            Image {
                source: "qrc:/Tappix/Ui/icons/tappix.svg"
                sourceSize: Qt.size(30, 30)
                Layout.preferredWidth: 30
                Layout.preferredHeight: 30
                Accessible.ignored: true
            }
            Label {
                text: "Tappix"
                color: sidebar.theme.text
                font.pixelSize: 17
                font.bold: true
            }
        }

        Repeater {
            id: repeater
            model: sidebar.pages
            delegate: AbstractButton {
                id: item
                required property var modelData
                required property int index
                readonly property bool selected: modelData.id === sidebar.current
                text: modelData.title
                checkable: false
                focusPolicy: Qt.StrongFocus
                hoverEnabled: true
                implicitHeight: 36
                Layout.fillWidth: true
                // Qt 6.4's controls report their own role over the one given them, so
                // the tab a screen reader sees is the item below.
                Accessible.ignored: true
                onClicked: sidebar.chosen(modelData.id)
                Item {
                    anchors.fill: parent
                    Accessible.role: Accessible.PageTab
                    Accessible.name: item.text
                    Accessible.selected: item.selected
                    Accessible.focusable: true
                    Accessible.focused: item.activeFocus
                    Accessible.onPressAction: sidebar.chosen(item.modelData.id)
                }
                Keys.onDownPressed: {
                    const next = repeater.itemAt(Math.min(index + 1, repeater.count - 1))
                    next.forceActiveFocus()
                    sidebar.chosen(next.modelData.id)
                }
                Keys.onUpPressed: {
                    const next = repeater.itemAt(Math.max(index - 1, 0))
                    next.forceActiveFocus()
                    sidebar.chosen(next.modelData.id)
                }
                background: Rectangle {
                    radius: 8
                    color: item.selected ? sidebar.theme.accent
                                         : item.down ? sidebar.theme.divider
                                         : item.hovered ? Qt.tint(sidebar.theme.card, "#10808080") : "transparent"
                    border.width: item.visualFocus ? 2 : 0
                    border.color: item.selected ? sidebar.theme.text : sidebar.theme.accent
                }
                contentItem: RowLayout {
                    spacing: 10
                    Symbol {
                        symbol: item.modelData.symbol
                        themeName: item.modelData.themeName
                        size: 16
                        color: item.selected ? sidebar.theme.onAccent : sidebar.theme.text
                        Layout.leftMargin: 8
                    }
                    Label {
                        text: item.text
                        color: item.selected ? sidebar.theme.onAccent : sidebar.theme.text
                        font.pixelSize: 13
                        font.weight: item.selected ? Font.DemiBold : Font.Normal
                        Layout.fillWidth: true
                    }
                }
            }
        }
        Item { Layout.fillHeight: true }
    }
}

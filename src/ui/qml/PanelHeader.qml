import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Headings are Text, not Label: Qt 6.4 reports a Label as a plain label whatever
// role it is given.
// A sub-page's top: a back control and the page's title.
RowLayout {
    id: header
    required property var theme
    property string title
    signal back()

    spacing: 6
    AbstractButton {
        id: backButton
        focusPolicy: Qt.StrongFocus
        hoverEnabled: true
        implicitWidth: 30
        implicitHeight: 30
        text: "Back"
        Accessible.role: Accessible.Button
        Accessible.name: "Back"
        Accessible.onPressAction: header.back()
        onClicked: header.back()
        Keys.onReturnPressed: header.back()
        background: Rectangle {
            radius: 8
            color: backButton.down ? header.theme.divider
                                   : (backButton.hovered || backButton.visualFocus) ? header.theme.card : "transparent"
            border.width: backButton.visualFocus ? 1 : 0
            border.color: header.theme.accent
        }
        contentItem: Item {
            Symbol {
                anchors.centerIn: parent
                symbol: "chevron-left"
                themeName: "go-previous-symbolic"
                size: 14
                color: header.theme.text
            }
        }
    }
    Text {
        text: header.title
        color: header.theme.text
        font.pixelSize: 15
        font.bold: true
        Accessible.role: Accessible.Heading
        Accessible.name: text
        Layout.fillWidth: true
    }
}

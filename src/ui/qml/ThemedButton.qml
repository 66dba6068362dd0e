import QtQuick
import QtQuick.Controls

// A push button in the theme's colours; `prominent` fills it with the accent.
AbstractButton {
    id: button
    required property var theme
    property bool prominent: false

    focusPolicy: Qt.StrongFocus
    hoverEnabled: true
    implicitHeight: 30
    implicitWidth: Math.max(80, label.implicitWidth + 28)
    opacity: enabled ? 1 : 0.45
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.onPressAction: button.clicked()
    Keys.onReturnPressed: button.clicked()
    Keys.onEnterPressed: button.clicked()

    background: Rectangle {
        radius: 8
        color: button.prominent ? (button.down ? Qt.darker(button.theme.accent, 1.15) : button.theme.accent)
                                : (button.down ? button.theme.divider
                                               : button.hovered ? button.theme.card : "transparent")
        border.width: button.visualFocus ? 2 : 1
        border.color: button.visualFocus ? button.theme.text : button.theme.divider
    }
    contentItem: Text {
        id: label
        text: button.text
        color: button.prominent ? button.theme.onAccent : button.theme.text
        font.pixelSize: 12
        font.weight: Font.DemiBold
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
}

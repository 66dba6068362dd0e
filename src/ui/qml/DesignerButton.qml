import QtQuick
import QtQuick.Controls

// A push button in the theme's colours: filled with the accent when it is the main
// action, outlined otherwise. Works from the keyboard and for screen readers.
Button {
    id: control
    required property var theme
    property bool primary: false
    // A chip: smaller, rounder, filled when chosen.
    property bool chip: false
    property bool chosen: false

    readonly property bool filled: primary || chosen
    focusPolicy: Qt.StrongFocus
    hoverEnabled: true
    implicitHeight: chip ? 28 : 34
    leftPadding: chip ? 12 : 16
    rightPadding: chip ? 12 : 16
    Accessible.name: text
    Accessible.onPressAction: control.clicked()
    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    background: Rectangle {
        radius: control.chip ? height / 2 : 8
        color: control.filled ? control.theme.accent
                              : control.down ? control.theme.divider
                                             : control.hovered ? control.theme.card : "transparent"
        opacity: control.enabled ? (control.down && control.filled ? 0.85 : 1) : 0.45
        border.width: control.visualFocus ? 2 : 1
        border.color: control.visualFocus ? control.theme.text
                                          : control.filled ? control.theme.accent : control.theme.divider
    }
    contentItem: Text {
        text: control.text
        color: control.filled ? control.theme.onAccent : control.theme.text
        opacity: control.enabled ? 1 : 0.6
        font.pixelSize: control.chip ? 12 : 13
        // Chips keep their weight when chosen, so the row never shifts.
        font.weight: control.primary ? Font.DemiBold : Font.Normal
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
        Accessible.ignored: true
    }
}

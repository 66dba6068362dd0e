import QtQuick
import QtQuick.Controls

// A push button of the Mix page in the theme's colours; `primary` fills it with the
// accent. Works from the keyboard (Space, Return) and for screen readers.
Button {
    id: control
    required property var theme
    property bool primary: false

    focusPolicy: Qt.StrongFocus
    hoverEnabled: true
    topPadding: 6
    bottomPadding: 6
    leftPadding: 14
    rightPadding: 14
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.onPressAction: control.clicked()
    Keys.onReturnPressed: control.clicked()
    Keys.onEnterPressed: control.clicked()

    contentItem: Text {
        text: control.text
        color: control.primary ? control.theme.onAccent : control.theme.text
        font.pixelSize: 13
        font.weight: control.primary ? Font.DemiBold : Font.Normal
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    background: Rectangle {
        implicitHeight: 30
        implicitWidth: 64
        radius: 7
        color: control.primary ? control.theme.accent : control.theme.card
        border.width: control.visualFocus ? 2 : 1
        border.color: control.visualFocus ? (control.primary ? control.theme.text : control.theme.accent)
                                          : (control.primary ? control.theme.accent : control.theme.divider)
        Rectangle {
            anchors.fill: parent
            radius: parent.radius
            color: control.primary ? control.theme.onAccent : control.theme.text
            opacity: control.down ? 0.16 : control.hovered ? 0.07 : 0
        }
    }
    opacity: enabled ? 1 : 0.4
}

import QtQuick
import QtQuick.Controls

// A switch in the theme's colours that follows `on` and reports the user's flips
// through `flipped`, whether they come from the pointer, the keyboard or a screen reader.
Switch {
    id: control
    required property var theme
    property bool on: false
    signal flipped(bool value)

    focusPolicy: Qt.StrongFocus
    checked: on
    // A flip is a request: the switch shows what the store holds afterwards, so one the
    // store refused springs back.
    onCheckedChanged: {
        if (checked === on)
            return
        flipped(checked)
        checked = Qt.binding(() => control.on)
    }
    Accessible.name: text

    indicator: Rectangle {
        implicitWidth: 36
        implicitHeight: 20
        x: control.width - width - control.rightPadding
        y: parent.height / 2 - height / 2
        radius: 10
        color: control.checked ? control.theme.accent : control.theme.divider
        border.width: control.visualFocus ? 2 : 0
        border.color: control.theme.text
        Rectangle {
            x: control.checked ? parent.width - width - 2 : 2
            y: 2
            width: 16
            height: 16
            radius: 8
            color: control.checked ? control.theme.onAccent : control.theme.text
            Behavior on x { NumberAnimation { duration: 90 } }
        }
    }
    contentItem: Label {
        text: control.text
        color: control.theme.text
        font.pixelSize: 13
        verticalAlignment: Text.AlignVCenter
        rightPadding: control.indicator.width + 8
        elide: Text.ElideRight
    }
}

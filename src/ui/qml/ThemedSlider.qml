import QtQuick
import QtQuick.Controls

// A slider in the theme's colours that follows `level` and reports the user's moves
// through `changedByUser`, from the pointer, the keyboard or a screen reader.
Slider {
    id: control
    required property var theme
    property real level: 0
    signal changedByUser(real value)

    focusPolicy: Qt.StrongFocus
    stepSize: 0.01
    Binding on value { value: control.level }
    onValueChanged: if (Math.abs(value - level) > 0.0001) changedByUser(value)

    background: Rectangle {
        x: control.leftPadding
        y: control.topPadding + control.availableHeight / 2 - height / 2
        implicitWidth: 160
        implicitHeight: 4
        width: control.availableWidth
        height: implicitHeight
        radius: 2
        color: control.theme.divider
        Rectangle {
            width: control.visualPosition * parent.width
            height: parent.height
            color: control.theme.accent
            radius: 2
        }
    }
    handle: Rectangle {
        x: control.leftPadding + control.visualPosition * (control.availableWidth - width)
        y: control.topPadding + control.availableHeight / 2 - height / 2
        implicitWidth: 16
        implicitHeight: 16
        radius: 8
        color: control.pressed ? control.theme.accent : control.theme.text
        border.color: control.visualFocus ? control.theme.accent : control.theme.divider
        border.width: control.visualFocus ? 2 : 1
    }
}

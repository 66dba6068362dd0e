import QtQuick
import QtQuick.Controls

// A small rounded choice of the Mix page: `selected` fills it with the accent, `ringed`
// draws a ring around it. Reports itself as a radio button of its group, checked when
// selected, unless `exclusive` is off.
AbstractButton {
    id: chip
    required property var theme
    property bool selected: false
    property bool ringed: false
    property bool exclusive: true
    property string description

    focusPolicy: Qt.StrongFocus
    hoverEnabled: true
    topPadding: 5
    bottomPadding: 5
    leftPadding: 11
    rightPadding: 11
    Accessible.role: exclusive ? Accessible.RadioButton : Accessible.Button
    Accessible.name: text
    Accessible.description: description
    Accessible.checkable: exclusive
    Accessible.checked: exclusive && selected
    Accessible.onPressAction: chip.clicked()
    Accessible.onToggleAction: chip.clicked()
    Keys.onReturnPressed: chip.clicked()
    Keys.onEnterPressed: chip.clicked()

    contentItem: Text {
        text: chip.text
        color: chip.selected ? chip.theme.onAccent : chip.theme.text
        font.pixelSize: 12
        font.weight: chip.selected ? Font.DemiBold : Font.Normal
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    background: Rectangle {
        implicitHeight: 26
        radius: height / 2
        color: chip.selected ? chip.theme.accent : chip.theme.background
        border.width: chip.ringed || chip.visualFocus ? 2 : 1
        border.color: chip.ringed || chip.visualFocus ? chip.theme.text
                      : chip.selected ? chip.theme.accent : chip.theme.divider
        Rectangle {
            anchors.fill: parent
            radius: parent.radius
            color: chip.selected ? chip.theme.onAccent : chip.theme.text
            opacity: chip.down ? 0.16 : chip.hovered ? 0.07 : 0
        }
    }
}

import QtQuick

// The two-dimensional tone pad: left is deeper, right higher; up is brighter, down
// darker. Drag or use the arrow keys; a double-click or Home resets both.
Rectangle {
    id: pad
    required property var theme
    required property var settings

    // Pitch 0.5 … 2 is spread evenly in octaves across the width.
    readonly property real xPos: Math.log(settings.tonePitch) / Math.log(2) / 2 + 0.5
    readonly property real yPos: 1 - settings.toneBrightness
    readonly property real keyStep: 0.04

    function place(x, y) {
        const cx = Math.min(Math.max(x, 0), 1)
        const cy = Math.min(Math.max(y, 0), 1)
        settings.tonePitch = Math.pow(2, (cx - 0.5) * 2)
        settings.toneBrightness = 1 - cy
    }
    function reset() {
        settings.tonePitch = 1
        settings.toneBrightness = 1
    }

    implicitHeight: 150
    radius: 10
    color: theme.background
    border.width: activeFocus ? 2 : 1
    border.color: activeFocus ? theme.accent : theme.divider
    activeFocusOnTab: true
    Accessible.role: Accessible.Slider
    Accessible.name: "Tone pad"
    Accessible.description: "Pitch " + Math.round(settings.tonePitch * 100) + "%, brightness "
                            + Math.round(settings.toneBrightness * 100) + "%"
    Keys.onLeftPressed: place(xPos - keyStep, yPos)
    Keys.onRightPressed: place(xPos + keyStep, yPos)
    Keys.onUpPressed: place(xPos, yPos - keyStep)
    Keys.onDownPressed: place(xPos, yPos + keyStep)
    Keys.onPressed: event => { if (event.key === Qt.Key_Home) { reset(); event.accepted = true } }

    // A light grid so the middle and the quarters read at a glance.
    Repeater {
        model: 3
        Rectangle {
            required property int index
            x: pad.width * (index + 1) / 4
            y: 8
            width: 1
            height: pad.height - 16
            color: pad.theme.divider
            opacity: index === 1 ? 1 : 0.5
        }
    }
    Repeater {
        model: 3
        Rectangle {
            required property int index
            x: 8
            y: pad.height * (index + 1) / 4
            width: pad.width - 16
            height: 1
            color: pad.theme.divider
            opacity: index === 1 ? 1 : 0.5
        }
    }
    // The axis words sit at the edges, clear of the dot's home at the top centre.
    Text { text: "deeper"; color: pad.theme.mutedText; font.pixelSize: 10; anchors.left: parent.left; anchors.verticalCenter: parent.verticalCenter; anchors.leftMargin: 10 }
    Text { text: "higher"; color: pad.theme.mutedText; font.pixelSize: 10; anchors.right: parent.right; anchors.verticalCenter: parent.verticalCenter; anchors.rightMargin: 10 }
    Text { text: "brighter"; color: pad.theme.mutedText; font.pixelSize: 10; anchors.top: parent.top; anchors.left: parent.left; anchors.margins: 10 }
    Text { text: "darker"; color: pad.theme.mutedText; font.pixelSize: 10; anchors.bottom: parent.bottom; anchors.left: parent.left; anchors.margins: 10 }

    Rectangle {
        id: dot
        width: 18
        height: 18
        radius: 9
        x: pad.xPos * (pad.width - width)
        y: pad.yPos * (pad.height - height)
        color: pad.theme.accent
        border.width: 3
        border.color: pad.theme.onAccent
    }

    MouseArea {
        anchors.fill: parent
        onPressed: mouse => { pad.forceActiveFocus(); move(mouse) }
        onPositionChanged: mouse => move(mouse)
        onDoubleClicked: pad.reset()
        function move(mouse) {
            pad.place((mouse.x - dot.width / 2) / (pad.width - dot.width),
                      (mouse.y - dot.height / 2) / (pad.height - dot.height))
        }
    }
}

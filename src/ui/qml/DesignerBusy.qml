import QtQuick

// A small spinning arc in the accent colour, shown while a save or an import is under way.
Item {
    id: spinner
    required property var theme
    property bool running: false
    property string label: "Saving"
    implicitWidth: 16
    implicitHeight: 16
    Accessible.role: Accessible.Animation
    Accessible.name: spinner.label

    Canvas {
        id: arc
        anchors.fill: parent
        onPaint: {
            const ctx = getContext("2d")
            ctx.reset()
            ctx.strokeStyle = spinner.theme.accent
            ctx.lineWidth = 2
            ctx.lineCap = "round"
            ctx.beginPath()
            ctx.arc(width / 2, height / 2, width / 2 - 2, 0, Math.PI * 1.5)
            ctx.stroke()
        }
        RotationAnimator on rotation {
            running: spinner.running && spinner.visible
            from: 0
            to: 360
            duration: 900
            loops: Animation.Infinite
        }
    }
}

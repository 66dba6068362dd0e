import QtQuick

// The outline of the designed keystroke, press then release, mirrored about its
// middle; redrawn whenever the peaks change.
Rectangle {
    id: view
    required property var theme
    property var peaks: []
    property string label: "Waveform of the designed keystroke"

    radius: 8
    color: theme.background
    border.color: theme.divider
    border.width: 1
    Accessible.role: Accessible.Graphic
    Accessible.name: label

    onPeaksChanged: canvas.requestPaint()

    Canvas {
        id: canvas
        anchors.fill: parent
        anchors.margins: 8
        renderStrategy: Canvas.Immediate
        onWidthChanged: requestPaint()
        onHeightChanged: requestPaint()
        Connections {
            target: view.theme
            function onThemeChanged() { canvas.requestPaint() }
        }
        onPaint: {
            const ctx = getContext("2d")
            ctx.reset()
            const peaks = view.peaks
            const n = peaks.length
            const mid = height / 2
            ctx.strokeStyle = view.theme.divider
            ctx.lineWidth = 1
            ctx.beginPath()
            ctx.moveTo(0, mid)
            ctx.lineTo(width, mid)
            ctx.stroke()
            if (n === 0)
                return
            const step = width / n
            const half = mid - 1
            ctx.fillStyle = view.theme.accent
            ctx.beginPath()
            ctx.moveTo(0, mid)
            for (let i = 0; i < n; ++i)
                ctx.lineTo(i * step + step / 2, mid - Math.max(peaks[i] * half, 0.5))
            ctx.lineTo(width, mid)
            for (let i = n - 1; i >= 0; --i)
                ctx.lineTo(i * step + step / 2, mid + Math.max(peaks[i] * half, 0.5))
            ctx.closePath()
            ctx.fill()
        }
    }
}

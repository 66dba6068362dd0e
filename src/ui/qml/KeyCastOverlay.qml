import QtQuick

// The key-cast overlay: the latest keys as chips in a corner of the screen, above every
// window, never taking focus or a click. The window is as large as its chips, and where
// no compositor draws it clear it is cut to their shape, so it covers nothing else.
Window {
    id: root
    required property var theme
    required property var overlay

    // Just room for the chips' edges: where no compositor clears the window, the space
    // around them shows black.
    readonly property int pad: 2
    readonly property rect area: overlay.area

    // The chips as they stand now, in window coordinates, for the window's shape. Asked
    // once per turn of the event loop however many chips moved.
    function reshape() { Qt.callLater(applyShape) }
    function applyShape() {
        const shown = []
        for (let i = 0; i < chips.contentItem.children.length; ++i) {
            const chip = chips.contentItem.children[i]
            if (chip.radius === undefined || !chip.visible || chip.opacity < 0.05)
                continue
            const at = chip.mapToItem(root.contentItem, 0, 0)
            shown.push(Qt.rect(at.x, at.y, chip.width, chip.height))
        }
        overlay.shapeTo(shown, Math.round(overlay.chipHeight / 4))
    }
    onWidthChanged: reshape()
    onVisibleChanged: if (visible) reshape()

    title: "Tappix key cast"
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
           | Qt.WindowTransparentForInput | Qt.WindowDoesNotAcceptFocus
    color: "transparent"
    visible: false
    width: Math.max(1, Math.ceil(chips.contentWidth) + 2 * pad)
    height: overlay.chipHeight + 2 * pad
    x: overlay.position === "bottomLeft" ? area.x + overlay.margin
       : overlay.position === "bottomCenter" ? area.x + Math.round((area.width - width) / 2)
       : area.x + area.width - width - overlay.margin
    y: overlay.position === "topRight" ? area.y + overlay.margin
       : area.y + area.height - height - overlay.margin

    ListView {
        id: chips
        x: root.pad
        y: root.pad
        // Wide enough for six long chips, so every one is made and measured.
        width: root.overlay.fontSize * 40
        height: root.overlay.chipHeight
        orientation: ListView.Horizontal
        spacing: Math.round(root.overlay.fontSize / 3)
        interactive: false
        model: root.overlay.chips

        delegate: Rectangle {
            id: chip
            required property string modifiers
            required property string key
            required property string text
            required property bool held
            // Set while the chip fades out: it no longer counts as shown.
            property bool leaving: false

            height: root.overlay.chipHeight
            width: Math.max(height, Math.ceil(row.implicitWidth) + Math.round(height * 0.6))
            radius: Math.round(height / 4)
            color: root.theme.card
            border.color: chip.held ? root.theme.accent : root.theme.divider
            border.width: Math.max(1, Math.round(root.overlay.fontSize / 14))
            Accessible.role: Accessible.StaticText
            Accessible.name: chip.text
            Accessible.ignored: chip.leaving
            onXChanged: root.reshape()
            onYChanged: root.reshape()
            onWidthChanged: root.reshape()
            onOpacityChanged: root.reshape()
            Component.onDestruction: root.reshape()

            Row {
                id: row
                anchors.centerIn: parent
                spacing: chip.modifiers && chip.key ? Math.round(root.overlay.fontSize / 8) : 0
                Text {
                    id: symbols
                    text: chip.modifiers
                    visible: text.length > 0
                    color: root.theme.accent
                    // A modifier pressed alone fills its chip like a letter would, its
                    // glyph centred by its ink: ⌃ and ⌥ sit high in their line.
                    font.pixelSize: chip.key ? root.overlay.fontSize
                                             : Math.round(root.overlay.fontSize * 1.4)
                    font.weight: Font.DemiBold
                    Accessible.ignored: true
                    transform: Translate {
                        y: chip.key ? 0 : Math.round(symbols.height / 2 - symbols.baselineOffset
                                                     - root.overlay.inkMiddle(symbols.text,
                                                                              symbols.font))
                    }
                }
                Text {
                    text: chip.key
                    visible: text.length > 0
                    color: root.theme.text
                    font.pixelSize: root.overlay.fontSize
                    font.weight: Font.DemiBold
                    Accessible.ignored: true
                }
            }
        }

        add: Transition {
            NumberAnimation { property: "opacity"; from: 0; to: 1; duration: 120 }
            NumberAnimation {
                property: "y"; from: root.overlay.chipHeight / 3; to: 0; duration: 160
                easing.type: Easing.OutCubic
            }
        }
        remove: Transition {
            PropertyAction { property: "leaving"; value: true }
            NumberAnimation { property: "opacity"; to: 0; duration: 160 }
        }
        displaced: Transition {
            NumberAnimation { property: "x"; duration: 140; easing.type: Easing.OutCubic }
        }
    }
}

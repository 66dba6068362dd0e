import QtQuick

// The key-cast overlay: the latest keys as chips in a corner of the screen, above every
// window, never taking focus or a click. The window is a strip along the screen's edge,
// inside its margin; the row of chips slides within it to stay in its corner as chips come
// and go, so the chips that stay never jump. Where no compositor draws the window clear it
// is cut to the chips' shape, so it covers nothing else.
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
    width: Math.max(1, area.width - 2 * overlay.margin)
    height: overlay.chipHeight + 2 * pad
    x: area.x + overlay.margin
    y: overlay.position === "topRight" ? area.y + overlay.margin
       : area.y + area.height - height - overlay.margin

    ListView {
        id: chips
        // The row's place in the strip: at its left end, its right end or its middle.
        x: root.overlay.position === "bottomLeft" ? root.pad
           : root.overlay.position === "bottomCenter"
             ? Math.round((root.width - contentWidth) / 2)
             : root.width - root.pad - Math.ceil(contentWidth)
        // As long as the chips that move aside, so that those staying stand still.
        Behavior on x { NumberAnimation { duration: 140; easing.type: Easing.OutCubic } }
        onXChanged: root.reshape()
        y: root.pad
        // As wide as the strip, so every chip is made and measured.
        width: root.width
        height: root.overlay.chipHeight
        orientation: ListView.Horizontal
        spacing: root.overlay.spacing
        interactive: false
        model: root.overlay.chips

        delegate: Rectangle {
            id: chip
            required property string modifiers
            required property string key
            required property string text
            required property bool isShortcut
            // Set while the chip fades out: it no longer counts as shown.
            property bool leaving: false

            height: root.overlay.chipHeight
            width: Math.max(height, Math.ceil(row.implicitWidth) + Math.round(height * 0.6))
            radius: Math.round(height / 4)
            color: root.theme.card
            border.color: chip.isShortcut ? root.theme.accent : root.theme.divider
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
                    id: keyLabel
                    // A symbol alone (␣, ⏎, ←) is centred by its ink too: ␣ sits on the
                    // baseline, where a letter's foot would be.
                    readonly property bool alone: !chip.modifiers && text.length === 1
                                                  && !/[A-Z0-9]/.test(text)
                    text: chip.key
                    visible: text.length > 0
                    color: root.theme.text
                    font.pixelSize: root.overlay.fontSize
                    font.weight: Font.DemiBold
                    Accessible.ignored: true
                    transform: Translate {
                        y: keyLabel.alone ? Math.round(keyLabel.height / 2 - keyLabel.baselineOffset
                                                       - root.overlay.inkMiddle(keyLabel.text,
                                                                                keyLabel.font))
                                          : 0
                    }
                }
            }
        }

        // A new chip springs up into place from a little below, growing as it fades in;
        // a chip that goes shrinks a little as it fades out.
        add: Transition {
            NumberAnimation { property: "opacity"; from: 0; to: 1; duration: 150 }
            NumberAnimation {
                property: "scale"; from: 0.7; to: 1; duration: 300
                easing.type: Easing.OutBack; easing.overshoot: 0.8
            }
            NumberAnimation {
                property: "y"; from: 8; to: 0; duration: 300
                easing.type: Easing.OutBack; easing.overshoot: 0.8
            }
        }
        remove: Transition {
            PropertyAction { property: "leaving"; value: true }
            NumberAnimation {
                properties: "opacity"; to: 0; duration: root.overlay.fadeOutMs
                easing.type: Easing.OutCubic
            }
            NumberAnimation {
                property: "scale"; to: 0.9; duration: root.overlay.fadeOutMs
                easing.type: Easing.OutCubic
            }
        }
        displaced: Transition {
            NumberAnimation { property: "x"; duration: 140; easing.type: Easing.OutCubic }
        }
    }
}

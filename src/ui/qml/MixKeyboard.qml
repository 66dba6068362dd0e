import QtQuick

// The drawn keyboard of the Mix page. Every key sits in the part of the board that
// really answers it; the parts the playing mix gives their own sound are lit in the
// accent, the part under the pointer is highlighted and the one being edited ringed.
// Clicking a key edits its part. The parts are reached from the keyboard through the
// list under the board, so the drawing itself is one picture to a screen reader.
Item {
    id: board
    required property var theme
    required property var editor
    property string hovered: ""

    readonly property var keys: editor.keyboard
    readonly property real columns: keys.reduce((m, k) => Math.max(m, k.x + k.width), 0)
    readonly property real rows: keys.reduce((m, k) => Math.max(m, k.y + k.height), 0)
    readonly property int unit: columns > 0 ? Math.floor(width / columns) : 0
    readonly property int gap: Math.max(3, Math.round(unit / 10))

    implicitHeight: unit * rows
    Accessible.role: Accessible.Graphic
    Accessible.name: "Keyboard"

    Item {
        id: keyArea
        width: board.unit * board.columns
        height: board.unit * board.rows
        anchors.horizontalCenter: parent.horizontalCenter

        Repeater {
            model: board.keys
            delegate: Rectangle {
                id: key
                required property var modelData
                readonly property bool lit: board.editor.litRegions.indexOf(modelData.region) >= 0
                readonly property bool editing: board.editor.editing === modelData.region
                readonly property bool hovered: board.hovered === modelData.region

                // Both edges rounded to whole pixels, so rows end flush.
                readonly property int keyLeft: Math.round(modelData.x * board.unit)
                readonly property int keyTop: Math.round(modelData.y * board.unit)
                x: keyLeft + board.gap / 2
                y: keyTop + board.gap / 2
                width: Math.round((modelData.x + modelData.width) * board.unit) - keyLeft - board.gap
                height: Math.round((modelData.y + modelData.height) * board.unit) - keyTop - board.gap
                radius: Math.max(3, board.unit / 8)
                z: editing ? 1 : 0
                color: lit ? board.theme.accent : board.theme.background
                border.width: 1
                border.color: lit ? board.theme.accent : board.theme.divider
                Accessible.ignored: true

                // The part being edited: a ring just outside its keys.
                Rectangle {
                    visible: key.editing
                    anchors.fill: parent
                    anchors.margins: -Math.max(2, board.gap / 2 + 1)
                    radius: key.radius + 2
                    color: "transparent"
                    border.width: 2
                    border.color: board.theme.text
                }
                Rectangle {
                    anchors.fill: parent
                    anchors.margins: key.border.width
                    radius: key.radius - 1
                    color: key.lit ? board.theme.onAccent : board.theme.accent
                    opacity: key.hovered ? (key.lit ? 0.18 : 0.22) : 0
                }
                Text {
                    anchors.fill: parent
                    anchors.leftMargin: 2
                    anchors.rightMargin: 2
                    text: key.modelData.label
                    color: key.lit ? board.theme.onAccent : board.theme.text
                    opacity: key.lit ? 1 : 0.85
                    font.pixelSize: text.length > 1 && !/^[\u2190-\u2193]$/.test(text)
                                    ? Math.max(9, Math.round(board.unit * 0.27))
                                    : Math.max(10, Math.round(board.unit * 0.34))
                    font.weight: key.lit ? Font.DemiBold : Font.Normal
                    // A long name on a narrow board shrinks to fit its cap rather than lose letters.
                    fontSizeMode: Text.HorizontalFit
                    minimumPixelSize: 7
                    horizontalAlignment: Text.AlignHCenter
                    verticalAlignment: Text.AlignVCenter
                    elide: Text.ElideRight
                    Accessible.ignored: true
                }
                MouseArea {
                    anchors.fill: parent
                    anchors.margins: -board.gap / 2
                    hoverEnabled: true
                    cursorShape: Qt.PointingHandCursor
                    onEntered: board.hovered = key.modelData.region
                    onExited: if (board.hovered === key.modelData.region) board.hovered = ""
                    onClicked: board.editor.editRegion(key.modelData.region)
                }
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One row of the panel: a symbol, a title with an optional second line, an optional
// value, and a chevron or a check mark. Works from the keyboard and for screen readers.
AbstractButton {
    id: row

    required property var theme
    property string symbol
    property string themeSymbol
    property string detail
    property string value
    property bool chevron: false
    property bool marked: false
    property bool attention: false

    implicitHeight: detail ? 44 : 38
    focusPolicy: Qt.StrongFocus
    hoverEnabled: true
    Accessible.role: Accessible.Button
    Accessible.name: text + (value ? ": " + value : "") + (marked ? ", chosen" : "")
    Accessible.description: detail
    Accessible.onPressAction: row.clicked()
    Keys.onReturnPressed: row.clicked()
    Keys.onEnterPressed: row.clicked()

    background: Rectangle {
        radius: 8
        color: row.down ? row.theme.divider
                        : (row.hovered || row.visualFocus) ? row.theme.card : "transparent"
        border.width: row.visualFocus ? 1 : 0
        border.color: row.theme.accent
    }

    contentItem: RowLayout {
        spacing: 10
        Symbol {
            visible: row.symbol !== ""
            symbol: row.symbol
            themeName: row.themeSymbol
            size: 16
            color: row.attention ? row.theme.accent : row.theme.text
            Layout.leftMargin: 4
        }
        ColumnLayout {
            spacing: 1
            Layout.fillWidth: true
            Label {
                text: row.text
                color: row.attention ? row.theme.accent : row.theme.text
                font.pixelSize: 13
                font.weight: row.attention ? Font.DemiBold : Font.Normal
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            Label {
                visible: row.detail !== ""
                text: row.detail
                color: row.theme.mutedText
                font.pixelSize: 11
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
        }
        Label {
            visible: row.value !== ""
            text: row.value
            color: row.theme.mutedText
            font.pixelSize: 12
            elide: Text.ElideRight
            horizontalAlignment: Text.AlignRight
            Layout.maximumWidth: 150
        }
        Symbol {
            visible: row.chevron || row.marked
            symbol: row.marked ? "checkmark" : "chevron-right"
            themeName: row.marked ? "object-select-symbolic" : "go-next-symbolic"
            size: row.marked ? 14 : 12
            color: row.marked ? row.theme.accent : row.theme.mutedText
            Layout.rightMargin: 4
        }
    }
}

import QtQuick
import QtQuick.Controls

// The output devices, system default first; a chosen device that is missing stays
// listed, greyed, while sound goes to the default.
ComboBox {
    id: picker
    required property var theme
    required property var devices

    model: devices
    textRole: "name"
    valueRole: "uid"
    currentIndex: devices ? devices.currentIndex : 0
    implicitWidth: 260
    implicitHeight: 30
    Accessible.name: "Play sound through"
    onActivated: index => devices.choose(valueAt(index))

    delegate: ItemDelegate {
        id: row
        required property string name
        required property string uid
        required property bool isAvailable
        required property int index
        width: picker.width
        highlighted: picker.highlightedIndex === index
        Accessible.name: row.name + (row.isAvailable ? "" : " — not connected")
        contentItem: Text {
            text: row.name + (row.isAvailable ? "" : " — not connected")
            color: row.isAvailable ? picker.theme.text : picker.theme.mutedText
            font.pixelSize: 12
            elide: Text.ElideRight
            verticalAlignment: Text.AlignVCenter
        }
        background: Rectangle {
            color: row.highlighted ? picker.theme.divider : picker.theme.card
        }
    }
    contentItem: Text {
        leftPadding: 10
        rightPadding: picker.indicator.width + 6
        text: picker.displayText
        color: picker.theme.text
        font.pixelSize: 12
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
    }
    indicator: Symbol {
        x: picker.width - width - 10
        y: (picker.height - height) / 2
        symbol: "chevron-right"
        rotation: 90
        size: 12
        color: picker.theme.mutedText
    }
    background: Rectangle {
        radius: 8
        color: picker.theme.card
        border.width: picker.visualFocus ? 2 : 1
        border.color: picker.visualFocus ? picker.theme.accent : picker.theme.divider
    }
    popup.background: Rectangle {
        radius: 8
        color: picker.theme.card
        border.color: picker.theme.divider
    }
}

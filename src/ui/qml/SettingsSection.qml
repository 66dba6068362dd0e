import QtQuick
import QtQuick.Layouts

// A titled card of settings rows, separated by thin dividers.
ColumnLayout {
    id: section
    required property var theme
    property string title
    default property alias rows: column.data

    spacing: 8
    Layout.fillWidth: true

    Text {
        visible: section.title !== ""
        text: section.title
        color: section.theme.mutedText
        font.pixelSize: 11
        font.weight: Font.DemiBold
        font.letterSpacing: 0.8
        font.capitalization: Font.AllUppercase
        Layout.leftMargin: 4
        Accessible.role: Accessible.Heading
        Accessible.name: section.title
    }
    Card {
        theme: section.theme
        Layout.fillWidth: true
        implicitHeight: column.implicitHeight + 8
        ColumnLayout {
            id: column
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.top: parent.top
            anchors.margins: 4
            spacing: 0
        }
    }
}

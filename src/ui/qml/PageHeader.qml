import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Headings are Text, not Label: Qt 6.4 reports a Label as a plain label whatever
// role it is given.
// A settings page's title and the sentence under it.
ColumnLayout {
    required property var theme
    property string title
    property string subtitle
    spacing: 4

    Text {
        text: parent.title
        color: parent.theme.text
        font.pixelSize: 24
        font.bold: true
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }
    Label {
        visible: text !== ""
        text: parent.subtitle
        color: parent.theme.mutedText
        font.pixelSize: 13
        wrapMode: Text.WordWrap
        Layout.fillWidth: true
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
}

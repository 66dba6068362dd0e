import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One lifetime statistic: its value, its name and how it is counted.
Card {
    id: card
    property string title
    property string value
    property string explanation

    implicitHeight: column.implicitHeight + 28
    Accessible.role: Accessible.Grouping
    Accessible.name: title + ": " + value
    Accessible.description: explanation

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 14
        spacing: 4
        Label {
            text: card.value
            color: card.theme.accent
            font.pixelSize: 22
            font.bold: true
            Accessible.role: Accessible.StaticText
            Accessible.name: card.title + ": " + text
            Accessible.description: card.explanation
        }
        Label {
            text: card.title
            color: card.theme.text
            font.pixelSize: 13
            font.weight: Font.DemiBold
            // Read out with the figure, as its name and description.
            Accessible.ignored: true
        }
        Label {
            text: card.explanation
            color: card.theme.mutedText
            font.pixelSize: 11
            wrapMode: Text.WordWrap
            lineHeight: 1.15
            Layout.fillWidth: true
            Layout.fillHeight: true
            verticalAlignment: Text.AlignTop
            Accessible.ignored: true
        }
    }
}

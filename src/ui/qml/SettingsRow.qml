import QtQuick
import QtQuick.Layouts

// One row of a settings card: a title, an optional note under it, and its control on
// the right. When the card is too narrow for both side by side, the control moves under
// the texts rather than over them. A divider separates it from the row above.
Item {
    id: row
    required property var theme
    property string title
    property string note
    property bool first: false
    default property alias control: trailing.data

    // The texts want their own width on one line, or this much when longer.
    readonly property real textsWant: Math.min(Math.max(titleMetrics.advanceWidth,
                                                        row.note !== "" ? noteMetrics.advanceWidth : 0),
                                               180)
    readonly property bool stacked: trailing.implicitWidth > 0
                                    && width - trailing.implicitWidth - 42 < textsWant

    Layout.fillWidth: true
    implicitHeight: stacked ? texts.implicitHeight + trailing.implicitHeight + 30
                            : Math.max(texts.implicitHeight, trailing.implicitHeight) + 22
    opacity: enabled ? 1 : 0.45

    TextMetrics {
        id: titleMetrics
        font.pixelSize: 13
        text: row.title
    }
    TextMetrics {
        id: noteMetrics
        font.pixelSize: 11
        text: row.note
    }

    Rectangle {
        visible: !row.first
        anchors.top: parent.top
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.leftMargin: 12
        anchors.rightMargin: 12
        height: 1
        color: row.theme.divider
    }
    ColumnLayout {
        id: texts
        x: 14
        y: row.stacked ? 11 : (row.height - height) / 2
        width: row.stacked ? row.width - 28 : row.width - trailing.width - 42
        spacing: 2
        Text {
            text: row.title
            color: row.theme.text
            font.pixelSize: 13
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.name: text
        }
        Text {
            visible: row.note !== ""
            text: row.note
            color: row.theme.mutedText
            font.pixelSize: 11
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.name: text
        }
    }
    Item {
        id: trailing
        x: row.stacked ? 14 : row.width - width - 14
        y: row.stacked ? texts.y + texts.height + 8 : (row.height - height) / 2
        implicitWidth: childrenRect.width
        implicitHeight: childrenRect.height
        width: implicitWidth
        height: implicitHeight
    }
}

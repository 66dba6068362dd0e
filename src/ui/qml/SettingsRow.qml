import QtQuick
import QtQuick.Layouts

// One row of a settings card: a title, an optional note under it, and its control on
// the right. A divider separates it from the row above.
Item {
    id: row
    required property var theme
    property string title
    property string note
    property bool first: false
    default property alias control: trailing.data

    Layout.fillWidth: true
    implicitHeight: Math.max(texts.implicitHeight, trailing.implicitHeight) + 22
    opacity: enabled ? 1 : 0.45

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
        anchors.left: parent.left
        anchors.right: trailing.left
        anchors.verticalCenter: parent.verticalCenter
        anchors.leftMargin: 14
        anchors.rightMargin: 14
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
        anchors.right: parent.right
        anchors.rightMargin: 14
        anchors.verticalCenter: parent.verticalCenter
        implicitWidth: childrenRect.width
        implicitHeight: childrenRect.height
        width: implicitWidth
        height: implicitHeight
    }
}

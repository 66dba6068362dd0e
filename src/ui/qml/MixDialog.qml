import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A small modal question of the Mix page: a title, a sentence, optionally a name to
// type, and two answers. `answered(text)` reports the first answer with the name typed;
// the second answer, Escape and closing dismiss it.
Dialog {
    id: dialog
    required property var theme
    property string message
    property string acceptText: "OK"
    property string rejectText: "Cancel"
    property bool withName: false
    property string name
    signal answered(string text)

    function ask(initialName) {
        name = initialName || ""
        open()
    }
    function answer() {
        if (withName && field.text.trim() === "")
            return
        const text = field.text
        close()
        answered(text)
    }

    parent: Overlay.overlay
    anchors.centerIn: parent
    width: 380
    modal: true
    closePolicy: Popup.CloseOnEscape
    padding: 20
    topPadding: 18

    onOpened: {
        field.text = name
        if (withName) {
            field.forceActiveFocus()
            field.selectAll()
        } else {
            rejectButton.forceActiveFocus()
        }
    }

    Overlay.modal: Rectangle { color: "#66000000" }

    background: Rectangle {
        radius: 12
        color: dialog.theme.card
        border.color: dialog.theme.divider
        border.width: 1
    }
    header: Item {}
    footer: Item {}

    contentItem: ColumnLayout {
        spacing: 12
        Text {
            text: dialog.title
            color: dialog.theme.text
            font.pixelSize: 16
            font.bold: true
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }
        Text {
            text: dialog.message
            color: dialog.theme.mutedText
            font.pixelSize: 13
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
        TextField {
            id: field
            visible: dialog.withName
            placeholderText: "Name"
            placeholderTextColor: dialog.theme.mutedText
            color: dialog.theme.text
            selectionColor: dialog.theme.accent
            selectedTextColor: dialog.theme.onAccent
            font.pixelSize: 13
            Layout.fillWidth: true
            Accessible.name: "Name"
            onAccepted: dialog.answer()
            background: Rectangle {
                implicitHeight: 32
                radius: 7
                color: dialog.theme.background
                border.width: field.activeFocus ? 2 : 1
                border.color: field.activeFocus ? dialog.theme.accent : dialog.theme.divider
            }
        }
        RowLayout {
            spacing: 8
            Layout.topMargin: 4
            Item { Layout.fillWidth: true }
            MixButton {
                id: rejectButton
                theme: dialog.theme
                text: dialog.rejectText
                onClicked: dialog.close()
            }
            MixButton {
                theme: dialog.theme
                primary: true
                text: dialog.acceptText
                enabled: !dialog.withName || field.text.trim() !== ""
                onClicked: dialog.answer()
            }
        }
    }
}

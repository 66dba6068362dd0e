import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The saved mixes: none, or one of them, plays; and the way to edit them.
ColumnLayout {
    id: page
    required property var theme
    required property var panel
    required property var mixes

    function focusFirst() { offRow.forceActiveFocus() }

    spacing: 2

    PanelHeader {
        theme: page.theme
        title: "Mixes"
        onBack: page.panel.page = "main"
        Layout.fillWidth: true
        Layout.bottomMargin: 4
    }

    PanelRow {
        id: offRow
        theme: page.theme
        text: "Off — main kit only"
        marked: page.mixes.activeMixId === ""
        onClicked: page.mixes.select("")
        Layout.fillWidth: true
        implicitHeight: 38
    }

    Repeater {
        model: page.mixes
        delegate: PanelRow {
            required property string mixId
            required property string name
            required property string summary
            required property bool isActive
            theme: page.theme
            text: name
            detail: summary
            marked: isActive
            implicitHeight: 40
            onClicked: page.mixes.select(mixId)
            Layout.fillWidth: true
        }
    }

    Item { Layout.fillHeight: true }

    PanelRow {
        theme: page.theme
        text: "Edit this mix"
        symbol: "sliders"
        themeSymbol: "preferences-other-symbolic"
        chevron: true
        onClicked: page.panel.openPage("mix")
        Layout.fillWidth: true
    }
}

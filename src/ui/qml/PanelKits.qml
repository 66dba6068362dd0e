import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The panel's kits page: the kits, shelf by shelf, the user's own last; the current one
// checked.
ColumnLayout {
    id: page
    required property var settings
    required property var theme
    required property var panel
    required property var kits

    function focusFirst() {
        list.focusCurrent()
    }

    spacing: 6

    PanelHeader {
        theme: page.theme
        title: "Sound kits"
        onBack: page.panel.page = "main"
        Layout.fillWidth: true
    }

    KitList {
        id: list
        theme: page.theme
        kits: page.kits
        Layout.fillWidth: true
        Layout.fillHeight: true
    }
}

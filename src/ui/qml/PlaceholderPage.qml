import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A page whose controls are still to come: its title and what it will hold.
ColumnLayout {
    id: page
    required property var theme
    property string title
    property string subtitle
    property string symbol
    spacing: 20

    PageHeader {
        theme: page.theme
        title: page.title
        subtitle: page.subtitle
        Layout.fillWidth: true
    }
    Item { Layout.fillHeight: true; Layout.fillWidth: true
        Symbol {
            anchors.centerIn: parent
            anchors.verticalCenterOffset: -40
            symbol: page.symbol
            size: 64
            color: page.theme.divider
        }
    }
}

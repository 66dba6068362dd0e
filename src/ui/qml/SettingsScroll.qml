import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A settings page's scrolling column: its header, then its sections.
Flickable {
    id: page
    required property var theme
    property string title
    property string subtitle
    default property alias sections: column.data

    contentHeight: column.implicitHeight + 24
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

    ColumnLayout {
        id: column
        width: page.width - 14
        spacing: 18
        PageHeader {
            theme: page.theme
            title: page.title
            subtitle: page.subtitle
            Layout.fillWidth: true
        }
    }
}

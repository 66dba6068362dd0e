import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The saved mixes: none, or one of them, plays; and the way to edit them. However many
// mixes there are, the rows scroll between the header and "Edit this mix", and the row
// with the keyboard focus is kept in sight.
ColumnLayout {
    id: page
    required property var theme
    required property var panel
    required property var mixes

    function focusFirst() {
        list.contentY = 0
        offRow.forceActiveFocus()
    }

    spacing: 2

    PanelHeader {
        theme: page.theme
        title: "Mixes"
        onBack: page.panel.page = "main"
        Layout.fillWidth: true
        Layout.bottomMargin: 4
    }

    Flickable {
        id: list
        clip: true
        contentWidth: width
        contentHeight: rows.implicitHeight
        boundsBehavior: Flickable.StopAtBounds
        Layout.fillWidth: true
        Layout.fillHeight: true
        // Shown whenever there is more than fits, so that the rows out of sight are known.
        ScrollBar.vertical: ScrollBar {
            id: bar
            policy: list.contentHeight > list.height ? ScrollBar.AlwaysOn : ScrollBar.AlwaysOff
        }

        function reveal(row) {
            const top = row.mapToItem(rows, 0, 0).y
            if (top < contentY)
                contentY = top
            else if (top + row.height > contentY + height)
                contentY = Math.min(top + row.height - height, contentHeight - height)
        }

        ColumnLayout {
            id: rows
            width: list.width - (list.contentHeight > list.height ? bar.width : 0)
            spacing: 2

            PanelRow {
                id: offRow
                theme: page.theme
                text: "Off — main kit only"
                marked: page.mixes.activeMixId === ""
                leftPadding: 8
                onClicked: page.mixes.select("")
                onActiveFocusChanged: if (activeFocus) list.reveal(offRow)
                Keys.onDownPressed: nextItemInFocusChain(true).forceActiveFocus(Qt.TabFocusReason)
                Layout.fillWidth: true
                implicitHeight: 38
            }

            Repeater {
                model: page.mixes
                delegate: PanelRow {
                    id: mixRow
                    required property string mixId
                    required property string name
                    required property string summary
                    required property bool isActive
                    theme: page.theme
                    text: name
                    detail: summary
                    marked: isActive
                    leftPadding: 8
                    implicitHeight: 40
                    onClicked: page.mixes.select(mixId)
                    onActiveFocusChanged: if (activeFocus) list.reveal(mixRow)
                    Keys.onUpPressed: nextItemInFocusChain(false).forceActiveFocus(Qt.BacktabFocusReason)
                    Keys.onDownPressed: nextItemInFocusChain(true).forceActiveFocus(Qt.TabFocusReason)
                    Layout.fillWidth: true
                }
            }
        }
    }

    PanelRow {
        theme: page.theme
        text: "Edit this mix"
        symbol: "sliders"
        themeSymbol: "preferences-other-symbolic"
        chevron: true
        onClicked: page.panel.openPage("mix")
        Layout.fillWidth: true
        Layout.topMargin: 2
    }
}

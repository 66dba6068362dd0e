import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Headings are Text, not Label: Qt 6.4 reports a Label as a plain label whatever
// role it is given.
// The kits, shelf by shelf, the user's own last; the current one checked.
ColumnLayout {
    id: page
    required property var settings
    required property var theme
    required property var panel
    required property var kits

    // Opens on the current kit, so that Return keeps it rather than choosing another.
    function focusFirst() {
        list.forceActiveFocus()
        list.currentIndex = Math.max(page.kits.currentRow, 0)
        list.positionViewAtIndex(list.currentIndex, ListView.Contain)
    }

    spacing: 6

    PanelHeader {
        theme: page.theme
        title: "Sound kits"
        onBack: page.panel.page = "main"
        Layout.fillWidth: true
    }

    ListView {
        id: list
        clip: true
        model: page.kits
        keyNavigationEnabled: true
        activeFocusOnTab: true
        boundsBehavior: Flickable.StopAtBounds
        highlightMoveDuration: 0
        Layout.fillWidth: true
        Layout.fillHeight: true
        Accessible.role: Accessible.List
        Accessible.name: "Sound kits"
        ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

        section.property: "section"
        section.delegate: Text {
            required property string section
            width: ListView.view.width
            text: section.toUpperCase()
            color: page.theme.mutedText
            font.pixelSize: 11
            font.letterSpacing: 0.8
            font.weight: Font.DemiBold
            topPadding: 10
            bottomPadding: 4
            leftPadding: 6
            Accessible.role: Accessible.Heading
            Accessible.name: section
        }

        delegate: PanelRow {
            required property string kitId
            required property string name
            required property string blurb
            required property bool isCurrent
            required property int index
            width: ListView.view.width - 6
            theme: page.theme
            text: name
            detail: blurb
            marked: isCurrent
            leftPadding: 8
            focusPolicy: Qt.NoFocus
            background: Rectangle {
                radius: 8
                color: ListView.isCurrentItem && list.activeFocus ? page.theme.card
                                                                  : parent.hovered ? page.theme.card : "transparent"
                border.width: ListView.isCurrentItem && list.activeFocus ? 1 : 0
                border.color: page.theme.accent
            }
            onClicked: {
                list.currentIndex = index
                page.kits.choose(kitId)
            }
        }
        Keys.onReturnPressed: if (currentItem) currentItem.clicked()
        Keys.onEnterPressed: if (currentItem) currentItem.clicked()
        Keys.onSpacePressed: if (currentItem) currentItem.clicked()
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The kits, shelf by shelf, the user's own last; the current one checked.
ColumnLayout {
    id: page
    required property var settings
    required property var theme
    required property var panel
    required property var kits

    function focusFirst() {
        list.forceActiveFocus()
        for (let i = 0; i < list.count; ++i) {
            const item = list.itemAtIndex(i)
            if (item && item.marked) {
                list.currentIndex = i
                list.positionViewAtIndex(i, ListView.Contain)
                return
            }
        }
        list.currentIndex = 0
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
        // A Text: Qt 6.4's Label reports itself as a plain label, whatever role it is given.
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

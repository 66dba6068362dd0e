import QtQuick
import QtQuick.Controls

// Headings are Text, not Label: Qt 6.4 reports a Label as a plain label whatever
// role it is given.
// The kits, shelf by shelf, the user's own last, the current one checked. Arrow keys
// move, Return or space chooses; the panel's kits page and the Sound page both show it.
ListView {
    id: list
    required property var theme
    required property var kits
    // Where the current kit sits once shown (ListView.Contain, ListView.Center …).
    property int showMode: ListView.Contain
    // Whether the scroll bar stays on while the kits overflow, so the list is seen to scroll.
    property bool alwaysShowScrollBar: false

    // Takes the keyboard on the current kit, so that Return keeps it rather than
    // choosing another.
    function focusCurrent() {
        forceActiveFocus()
        showCurrent()
    }
    function showCurrent() {
        currentIndex = Math.max(kits.currentRow, 0)
        positionViewAtIndex(currentIndex, showMode)
    }

    clip: true
    model: kits
    keyNavigationEnabled: true
    activeFocusOnTab: true
    boundsBehavior: Flickable.StopAtBounds
    highlightMoveDuration: 0
    // Every row is made at once and kept shown, clipped by the view rather than hidden
    // beyond it: Qt 6.8 leaves a row that is made out of view out of the accessibility
    // tree for good, its texts loose in the list, so a screen reader would not name it
    // when it scrolls in. There are few kits; the user's own come on top of ten.
    displayMarginBeginning: 100000
    displayMarginEnd: 100000
    Accessible.role: Accessible.List
    Accessible.name: "Sound kits"
    ScrollBar.vertical: ScrollBar {
        policy: list.alwaysShowScrollBar && list.contentHeight > list.height ? ScrollBar.AlwaysOn
                                                                             : ScrollBar.AsNeeded
    }

    section.property: "section"
    // The shelf's name comes as the context property `section`, not a required property:
    // a header the view reuses after the kits are listed again is handed its new shelf
    // only that way, where a required property would keep the shelf it was made for.
    section.delegate: Text {
        width: ListView.view.width
        text: section.toUpperCase()
        color: list.theme.mutedText
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
        // Names line up with the shelf headings.
        leftPadding: 6
        rightPadding: 6
        theme: list.theme
        text: name
        detail: blurb
        marked: isCurrent
        focusPolicy: Qt.NoFocus
        background: Rectangle {
            radius: 8
            color: ListView.isCurrentItem && list.activeFocus ? list.theme.card
                                                              : parent.hovered ? list.theme.card : "transparent"
            border.width: ListView.isCurrentItem && list.activeFocus ? 1 : 0
            border.color: list.theme.accent
        }
        onClicked: {
            list.currentIndex = index
            list.kits.choose(kitId)
        }
    }
    Keys.onReturnPressed: if (currentItem) currentItem.clicked()
    Keys.onEnterPressed: if (currentItem) currentItem.clicked()
    Keys.onSpacePressed: if (currentItem) currentItem.clicked()
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The Mix page: the saved mixes and which one plays, the board with the parts the
// playing mix gives their own sound lit, and for the part clicked, its kit and sound.
Flickable {
    id: page
    required property var settings
    required property var theme
    required property var typing
    required property var kits
    required property var mixes
    required property var models
    readonly property var editor: models.mixEditor
    readonly property bool playing: editor.activeMixId !== ""
    // The part whose editor shows, and whether all of its kit's sounds are listed.
    property string shownEditing: ""
    property bool allSounds: false
    // Per-key kits have dozens of sounds: the general ones and the one chosen are
    // listed until the user asks for every key's own.
    readonly property var shownSounds: {
        const all = editor.soundChoices
        const few = all.filter(s => s.general || s.key === editor.chosenSound)
        return allSounds || all.length - few.length <= 2 ? all : few
    }

    contentHeight: column.implicitHeight + 8
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

    // Keyboard focus moving to a control out of view scrolls it into view.
    function reveal(item) {
        if (!item || contentHeight <= height)
            return
        let inside = item
        while (inside && inside !== column)
            inside = inside.parent
        if (!inside)
            return
        const top = item.mapToItem(column, 0, 0).y
        const bottom = top + item.height
        if (top < contentY)
            contentY = Math.max(0, top - 12)
        else if (bottom > contentY + height)
            contentY = Math.min(contentHeight - height, bottom - height + 12)
    }
    Connections {
        target: page.Window.window
        function onActiveFocusItemChanged() { page.reveal(page.Window.activeFocusItem) }
    }

    // Opening a part's editor scrolls its kits into view, once laid out.
    property bool revealEditor: false
    onContentHeightChanged: if (revealEditor) showEditor()
    function showEditor() {
        // Until the column has placed it, the card sits at the top.
        if (!editorCard.visible || editorCard.y <= 0)
            return
        revealEditor = false
        const want = Math.min(editorCard.y + Math.min(editorCard.height, 320) + 16 - height,
                              contentHeight - height)
        if (want > contentY) {
            scroll.to = want
            scroll.restart()
        }
    }
    NumberAnimation { id: scroll; target: page; property: "contentY"; duration: 180; easing.type: Easing.OutCubic }
    Connections {
        target: page.editor
        function onEditingChanged() {
            if (page.editor.editing === page.shownEditing)
                return
            page.shownEditing = page.editor.editing
            page.allSounds = false
            page.revealEditor = page.shownEditing !== ""
            if (page.revealEditor)
                Qt.callLater(page.showEditor)
        }
    }

    // One kit the part being edited can play.
    component KitTile: AbstractButton {
        id: tile
        property string blurb
        property bool selected: false
        focusPolicy: Qt.StrongFocus
        hoverEnabled: true
        padding: 10
        Accessible.role: Accessible.RadioButton
        Accessible.name: text
        Accessible.description: blurb
        Accessible.checkable: true
        Accessible.checked: selected
        Accessible.onPressAction: tile.clicked()
        Accessible.onToggleAction: tile.clicked()
        Keys.onReturnPressed: tile.clicked()
        Keys.onEnterPressed: tile.clicked()

        background: Rectangle {
            implicitHeight: 50
            radius: 8
            color: page.theme.background
            border.width: tile.selected || tile.visualFocus ? 2 : 1
            border.color: tile.visualFocus ? page.theme.text
                          : tile.selected ? page.theme.accent : page.theme.divider
            Rectangle {
                anchors.fill: parent
                radius: parent.radius
                color: page.theme.text
                opacity: tile.down ? 0.12 : tile.hovered ? 0.05 : 0
            }
        }
        contentItem: RowLayout {
            spacing: 8
            ColumnLayout {
                spacing: 1
                Layout.fillWidth: true
                Label {
                    text: tile.text
                    color: page.theme.text
                    font.pixelSize: 13
                    font.weight: tile.selected ? Font.DemiBold : Font.Normal
                    elide: Text.ElideRight
                    Layout.fillWidth: true
                }
                Label {
                    visible: tile.blurb !== ""
                    text: tile.blurb
                    color: page.theme.mutedText
                    font.pixelSize: 11
                    wrapMode: Text.WordWrap
                    maximumLineCount: 2
                    elide: Text.ElideRight
                    Layout.fillWidth: true
                }
            }
            Symbol {
                visible: tile.selected
                symbol: "checkmark"
                themeName: "object-select-symbolic"
                size: 14
                color: page.theme.accent
            }
        }
    }

    ColumnLayout {
        id: column
        width: page.width - 12
        spacing: 16

        PageHeader {
            theme: page.theme
            title: "Mix"
            subtitle: "Give any part of the board its own sound."
            Layout.fillWidth: true
        }

        Label {
            text: "A mix lets one kit handle the letters while another takes Return, space or the function row — right down to which of its sounds each part uses."
            color: page.theme.text
            font.pixelSize: 13
            lineHeight: 1.15
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        // No mix saved yet: what mixes are for, and the way to make one.
        Card {
            theme: page.theme
            visible: !page.editor.hasMixes
            Layout.fillWidth: true
            implicitHeight: emptyState.implicitHeight + 40
            ColumnLayout {
                id: emptyState
                anchors.fill: parent
                anchors.margins: 20
                spacing: 8
                Symbol {
                    symbol: "sliders"
                    themeName: "preferences-other-symbolic"
                    size: 28
                    color: page.theme.accent
                    Layout.alignment: Qt.AlignHCenter
                }
                Text {
                    text: page.editor.stateTitle
                    color: page.theme.text
                    font.pixelSize: 16
                    font.bold: true
                    Layout.alignment: Qt.AlignHCenter
                    Accessible.role: Accessible.Heading
                    Accessible.name: text
                }
                Text {
                    text: page.editor.stateText
                    color: page.theme.mutedText
                    font.pixelSize: 13
                    wrapMode: Text.WordWrap
                    horizontalAlignment: Text.AlignHCenter
                    Layout.fillWidth: true
                    Layout.maximumWidth: 420
                    Layout.alignment: Qt.AlignHCenter
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
                MixButton {
                    theme: page.theme
                    primary: true
                    text: "New mix"
                    Layout.alignment: Qt.AlignHCenter
                    Layout.topMargin: 6
                    onClicked: nameDialog.create()
                }
            }
        }

        // The saved mixes: none of them, or one, plays.
        Card {
            theme: page.theme
            visible: page.editor.hasMixes
            Layout.fillWidth: true
            implicitHeight: mixList.implicitHeight + 16
            ColumnLayout {
                id: mixList
                anchors.fill: parent
                anchors.margins: 8
                spacing: 2

                // Lists whose rows come and go sit in positioners: Qt 6.4's layouts can
                // trip over a repeated row deleted in the middle of arranging.
                Column {
                    id: mixRows
                    spacing: 2
                    Layout.fillWidth: true
                    PanelRow {
                        theme: page.theme
                        text: "Off — main kit only"
                        marked: !page.playing
                        onClicked: page.editor.selectMix("")
                        width: mixRows.width
                    }
                    Repeater {
                        model: page.editor.mixList
                        delegate: PanelRow {
                            required property var modelData
                            theme: page.theme
                            text: modelData.name
                            detail: modelData.summary
                            marked: page.editor.activeMixId === modelData.mixId
                            onClicked: page.editor.selectMix(modelData.mixId)
                            width: mixRows.width
                        }
                    }
                }
                Rectangle {
                    color: page.theme.divider
                    implicitHeight: 1
                    Layout.fillWidth: true
                    Layout.topMargin: 4
                    Layout.bottomMargin: 4
                }
                RowLayout {
                    spacing: 8
                    Layout.fillWidth: true
                    Layout.leftMargin: 4
                    Layout.rightMargin: 4
                    Layout.bottomMargin: 2
                    MixButton {
                        theme: page.theme
                        text: "New mix"
                        onClicked: nameDialog.create()
                    }
                    MixButton {
                        theme: page.theme
                        visible: page.playing
                        text: "Rename"
                        Accessible.name: "Rename " + page.editor.activeName
                        onClicked: nameDialog.rename()
                    }
                    Item { Layout.fillWidth: true }
                    MixButton {
                        theme: page.theme
                        visible: page.playing
                        text: "Delete"
                        Accessible.name: "Delete " + page.editor.activeName
                        onClicked: deleteDialog.open()
                    }
                }
            }
        }

        Text {
            visible: page.editor.hasMixes && !page.playing
            text: page.editor.stateText
            color: page.theme.mutedText
            font.pixelSize: 13
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        // The board of the mix that plays.
        Text {
            visible: page.playing
            text: "Click a key to change what it sounds like. Lit keys have their own sound."
            color: page.theme.mutedText
            font.pixelSize: 13
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Layout.bottomMargin: -6
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        Card {
            theme: page.theme
            visible: page.playing
            Layout.fillWidth: true
            implicitHeight: boardColumn.implicitHeight + 32
            ColumnLayout {
                id: boardColumn
                anchors.fill: parent
                anchors.margins: 16
                spacing: 14

                MixKeyboard {
                    theme: page.theme
                    editor: page.editor
                    Layout.fillWidth: true
                }

                Flow {
                    spacing: 6
                    Layout.fillWidth: true
                    Repeater {
                        model: page.editor.regions
                        delegate: MixChip {
                            required property string region
                            required property string label
                            required property bool lit
                            required property bool editing
                            required property string voice
                            theme: page.theme
                            text: label
                            selected: lit
                            ringed: editing
                            exclusive: false
                            Accessible.name: label + ": " + voice
                            description: editing ? "Being edited" : ""
                            onClicked: page.editor.editRegion(region)
                        }
                    }
                }
            }
        }

        Text {
            visible: page.playing && page.editor.changedParts === 0 && page.editor.editing === ""
            text: page.editor.stateText
            color: page.theme.mutedText
            font.pixelSize: 13
            wrapMode: Text.WordWrap
            Layout.fillWidth: true
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        // The part being edited: its kit, from one source at a time, and its sound.
        Card {
            id: editorCard
            theme: page.theme
            visible: page.playing && page.editor.editing !== ""
            Layout.fillWidth: true
            implicitHeight: editorColumn.implicitHeight + 32
            // Placed by width alone, and never narrower than nothing: the column lays the
            // card out at no width while it is hidden, and Qt 6.8 never settles a negative
            // width of wrapping rows.
            ColumnLayout {
                id: editorColumn
                x: 16
                y: 16
                width: Math.max(0, parent.width - 32)
                spacing: 12

                RowLayout {
                    spacing: 8
                    Layout.fillWidth: true
                    ColumnLayout {
                        spacing: 2
                        Layout.fillWidth: true
                        Text {
                            text: page.editor.editingLabel
                            color: page.theme.text
                            font.pixelSize: 16
                            font.bold: true
                            Accessible.role: Accessible.Heading
                            Accessible.name: text
                        }
                        Text {
                            text: "Plays " + page.editor.editingVoice
                            color: page.theme.mutedText
                            font.pixelSize: 12
                            elide: Text.ElideRight
                            Layout.fillWidth: true
                            Accessible.role: Accessible.StaticText
                            Accessible.name: text
                        }
                    }
                    MixButton {
                        theme: page.theme
                        text: "Reset"
                        enabled: page.editor.editingLit
                        Accessible.name: "Reset " + page.editor.editingLabel + " to the main kit"
                        onClicked: page.editor.resetRegion()
                    }
                    MixButton {
                        theme: page.theme
                        text: "Done"
                        onClicked: page.editor.editRegion("")
                    }
                }

                Flow {
                    spacing: 6
                    Layout.fillWidth: true
                    Repeater {
                        model: page.editor.sources
                        delegate: MixChip {
                            required property var modelData
                            theme: page.theme
                            text: modelData.title
                            selected: page.editor.source === modelData.id
                            onClicked: page.editor.chooseSource(modelData.id)
                        }
                    }
                }

                Grid {
                    id: kitGrid
                    visible: page.editor.kitChoices.length > 0
                    columns: 2
                    spacing: 8
                    Layout.fillWidth: true
                    Repeater {
                        model: page.editor.kitChoices
                        delegate: KitTile {
                            required property var modelData
                            text: modelData.name
                            blurb: modelData.blurb
                            selected: page.editor.chosenKit === modelData.kitId
                            onClicked: page.editor.chooseKit(modelData.kitId)
                            width: (kitGrid.width - kitGrid.spacing) / 2
                        }
                    }
                }
                Text {
                    visible: page.editor.kitChoices.length === 0
                    text: page.editor.source === "yours"
                          ? "Kits you design or import show up here."
                          : "No main kit is chosen yet."
                    color: page.theme.mutedText
                    font.pixelSize: 12
                    wrapMode: Text.WordWrap
                    Layout.fillWidth: true
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }

                Text {
                    text: "Which sound"
                    color: page.theme.text
                    font.pixelSize: 13
                    font.bold: true
                    Layout.topMargin: 4
                    Accessible.role: Accessible.Heading
                    Accessible.name: text
                }
                Flow {
                    spacing: 6
                    Layout.fillWidth: true
                    Repeater {
                        model: page.shownSounds
                        delegate: MixChip {
                            required property var modelData
                            theme: page.theme
                            text: modelData.label
                            selected: page.editor.chosenSound === modelData.key
                            description: modelData.key === "" ? "The kit picks a sound by the key pressed" : ""
                            onClicked: page.editor.chooseSound(modelData.key)
                        }
                    }
                    MixChip {
                        theme: page.theme
                        visible: page.shownSounds.length < page.editor.soundChoices.length
                        exclusive: false
                        text: "All " + (page.editor.soundChoices.length - 1) + " sounds…"
                        onClicked: page.allSounds = true
                    }
                }
                Text {
                    text: "Auto lets the kit pick a sound for each key pressed."
                    color: page.theme.mutedText
                    font.pixelSize: 11
                    wrapMode: Text.WordWrap
                    Layout.fillWidth: true
                    Accessible.role: Accessible.StaticText
                    Accessible.name: text
                }
            }
        }

        MixButton {
            theme: page.theme
            visible: page.playing && page.editor.changedParts > 0
            text: "Put every part back on the main kit"
            onClicked: page.editor.resetAll()
        }
    }

    MixDialog {
        id: nameDialog
        property bool renaming: false
        function create() {
            renaming = false
            ask(page.editor.suggestedName)
        }
        function rename() {
            renaming = true
            ask(page.editor.activeName)
        }
        theme: page.theme
        withName: true
        title: renaming ? "Rename mix" : "New mix"
        message: renaming ? "Give this mix a different name."
                          : "Name it something you'll recognise in the tray panel."
        acceptText: renaming ? "Save" : "Create"
        rejectText: "Cancel"
        onAnswered: text => renaming ? page.editor.renameActive(text) : page.editor.createMix(text)
    }

    MixDialog {
        id: deleteDialog
        theme: page.theme
        title: "Delete “" + page.editor.activeName + "”?"
        message: "The kits themselves are untouched — only this set of assignments goes."
        acceptText: "Delete"
        rejectText: "Keep"
        onAnswered: page.editor.deleteActive()
    }
}

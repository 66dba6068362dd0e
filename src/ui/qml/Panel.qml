import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The panel under the tray icon: volume, sounds on or off, kits and mixes, and the
// ways into the settings. Closes on Escape and when it loses focus.
Window {
    id: root
    required property var settings
    required property var theme
    required property var typing
    required property var panel
    required property var kits
    required property var mixes

    title: "Tappix"
    flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
    width: 320
    height: panel.panelHeight
    minimumWidth: 320
    maximumWidth: 320
    color: theme.background
    visible: false

    // Each opening starts on the main page with its first control focused.
    onVisibleChanged: if (visible) stack.focusCurrent()

    Rectangle {
        anchors.fill: parent
        color: "transparent"
        border.color: root.theme.divider
        border.width: 1
    }

    StackLayout {
        id: stack
        anchors.fill: parent
        anchors.margins: 12
        currentIndex: root.panel.page === "kits" ? 1 : root.panel.page === "mixes" ? 2 : 0
        onCurrentIndexChanged: focusCurrent()

        function focusCurrent() {
            const page = children[currentIndex]
            if (page && page.focusFirst)
                page.focusFirst()
        }

        PanelMain {
            settings: root.settings
            theme: root.theme
            typing: root.typing
            panel: root.panel
            kits: root.kits
            mixes: root.mixes
        }
        PanelKits {
            settings: root.settings
            theme: root.theme
            panel: root.panel
            kits: root.kits
        }
        PanelMixes {
            theme: root.theme
            panel: root.panel
            mixes: root.mixes
        }
    }

    Shortcut {
        sequences: ["Escape"]
        onActivated: root.panel.dismiss()
    }
    WindowShortcuts { panel: root.panel }
}

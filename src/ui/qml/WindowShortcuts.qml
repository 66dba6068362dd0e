import QtQuick

// The keys every Tappix window answers: Ctrl+, for the settings and Ctrl+Q to quit.
Item {
    required property var panel

    Shortcut {
        sequences: ["Ctrl+,"]
        context: Qt.WindowShortcut
        onActivated: panel.openSettings()
    }
    Shortcut {
        sequences: ["Ctrl+Q"]
        context: Qt.WindowShortcut
        onActivated: panel.quit()
    }
}

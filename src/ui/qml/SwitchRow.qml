import QtQuick

// A settings row whose control is a switch.
SettingsRow {
    id: row
    property bool on: false
    signal flipped(bool value)

    ThemedSwitch {
        theme: row.theme
        on: row.on
        enabled: row.enabled
        onFlipped: value => row.flipped(value)
        Accessible.name: row.title
        Accessible.description: row.note
        width: 44
    }
}

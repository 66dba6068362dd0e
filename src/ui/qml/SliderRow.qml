import QtQuick
import QtQuick.Layouts

// A settings row whose control is a slider with its value beside it.
SettingsRow {
    id: row
    property real level: 0
    property real from: 0
    property real to: 1
    property string valueText: Math.round(level * 100) + "%"
    signal changedByUser(real value)

    RowLayout {
        spacing: 10
        ThemedSlider {
            theme: row.theme
            from: row.from
            to: row.to
            level: row.level
            enabled: row.enabled
            onChangedByUser: value => row.changedByUser(value)
            Accessible.name: row.title
            Layout.preferredWidth: 180
        }
        Text {
            text: row.valueText
            color: row.theme.mutedText
            font.pixelSize: 12
            horizontalAlignment: Text.AlignRight
            Layout.preferredWidth: 38
            Accessible.name: row.title + " " + text
        }
    }
}

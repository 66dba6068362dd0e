import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One designed or tuned number: its name, the words at either end of its slider,
// and its value as the view spells it. Reports the user's moves through `moved`.
RowLayout {
    id: row
    required property var theme
    property string label
    property string lowWord
    property string highWord
    property string valueText
    property var range: ({ min: 0, max: 1, step: 0.01 })
    property real level: 0
    property alias slider: slider
    signal moved(real value)

    spacing: 10

    Text {
        text: row.label
        color: row.theme.text
        font.pixelSize: 13
        Layout.preferredWidth: 76
        elide: Text.ElideRight
        Accessible.ignored: true
    }
    Text {
        visible: row.lowWord !== ""
        text: row.lowWord
        color: row.theme.mutedText
        font.pixelSize: 11
        horizontalAlignment: Text.AlignRight
        Layout.preferredWidth: 44
        Accessible.ignored: true
    }
    ThemedSlider {
        id: slider
        theme: row.theme
        from: row.range.min
        to: row.range.max
        stepSize: row.range.step
        snapMode: Slider.SnapAlways
        level: row.level
        Layout.fillWidth: true
        Accessible.name: row.label
        Accessible.description: row.valueText
        onChangedByUser: value => row.moved(value)
    }
    Text {
        visible: row.highWord !== ""
        text: row.highWord
        color: row.theme.mutedText
        font.pixelSize: 11
        Layout.preferredWidth: 44
        Accessible.ignored: true
    }
    Text {
        text: row.valueText
        color: row.theme.text
        font.pixelSize: 12
        horizontalAlignment: Text.AlignRight
        Layout.preferredWidth: 58
        Accessible.ignored: true
    }
}

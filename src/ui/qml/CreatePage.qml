import QtQuick

// The Create page.
PlaceholderPage {
    required property var settings
    required property var typing
    required property var kits
    required property var mixes
    required property var models

    title: "Create"
    subtitle: "Design a switch of your own."
    symbol: "waveform"
}

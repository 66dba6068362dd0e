import QtQuick

// The Sound page.
PlaceholderPage {
    required property var settings
    required property var typing
    required property var kits
    required property var mixes
    required property var models

    title: "Sound"
    subtitle: "Pick a switch and tune it."
    symbol: "speaker-wave"
}

import QtQuick

// The Mix page.
PlaceholderPage {
    required property var settings
    required property var typing
    required property var kits
    required property var mixes
    required property var models

    title: "Mix"
    subtitle: "Give any part of the board its own sound."
    symbol: "sliders"
}

import QtQuick

// The Look page.
PlaceholderPage {
    required property var settings
    required property var typing
    required property var kits
    required property var mixes
    required property var models

    title: "Look"
    subtitle: "Theme, and the on-screen keys."
    symbol: "palette"
}

import QtQuick

// The Behaviour page.
PlaceholderPage {
    required property var settings
    required property var typing
    required property var kits
    required property var mixes
    required property var models

    title: "Behaviour"
    subtitle: "How Tappix lives on your desktop, and when it keeps quiet."
    symbol: "gear"
}

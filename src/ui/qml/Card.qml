import QtQuick

// A rounded surface a shade off the background.
Rectangle {
    required property var theme
    radius: 10
    color: theme.card
    border.color: theme.divider
    border.width: 1
}

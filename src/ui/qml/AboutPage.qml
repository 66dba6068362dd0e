import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Headings are Text, not Label: Qt 6.4 reports a Label as a plain label whatever
// role it is given.
// Who Tappix is, what it promises, and what it has counted.
Flickable {
    id: page
    required property var settings
    required property var theme
    required property var typing

    contentHeight: column.implicitHeight + 8
    clip: true
    boundsBehavior: Flickable.StopAtBounds
    ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

    function count(n) { return Number(n).toLocaleString(Qt.locale(), "f", 0) }
    function speed(wpm) { return wpm > 0 ? Math.round(wpm) + " wpm" : "—" }
    function percent(x) { return (x * 100).toFixed(x >= 0.9995 ? 0 : 1) + "%" }

    ColumnLayout {
        id: column
        width: page.width - 12
        spacing: 18

        RowLayout {
            spacing: 18
            Image {
                source: "qrc:/Tappix/Ui/icons/tappix.svg"
                sourceSize: Qt.size(76, 76)
                Layout.preferredWidth: 76
                Layout.preferredHeight: 76
                Accessible.role: Accessible.Graphic
                Accessible.name: "Tappix"
            }
            ColumnLayout {
                spacing: 3
                Text {
                    text: "Tappix"
                    color: page.theme.text
                    font.pixelSize: 28
                    font.bold: true
                    Accessible.role: Accessible.Heading
                    Accessible.name: text
                }
                Label {
                    text: "Version " + Qt.application.version
                    color: page.theme.mutedText
                    font.pixelSize: 12
                    Accessible.name: text
                }
                Label {
                    text: "Give your keyboard a voice."
                    color: page.theme.text
                    font.pixelSize: 14
                    Accessible.name: text
                }
            }
        }

        Card {
            theme: page.theme
            Layout.fillWidth: true
            implicitHeight: privacy.implicitHeight + 28
            RowLayout {
                id: privacy
                anchors.fill: parent
                anchors.margins: 14
                spacing: 12
                Symbol {
                    symbol: "info"
                    themeName: "dialog-information-symbolic"
                    size: 18
                    color: page.theme.accent
                    Layout.alignment: Qt.AlignTop
                }
                ColumnLayout {
                    spacing: 6
                    Layout.fillWidth: true
                    Label {
                        text: "Tappix plays a sound when a key moves. It never reads what you type, and the only thing it ever sends is a check for a new version."
                        color: page.theme.text
                        font.pixelSize: 13
                        wrapMode: Text.WordWrap
                        Layout.fillWidth: true
                        Accessible.name: text
                    }
                    Label {
                        text: "Bugs, ideas, switch requests: all welcome — "
                              + "<a href=\"mailto:hello@morvane.app\">hello@morvane.app</a>"
                        textFormat: Text.StyledText
                        linkColor: page.theme.accent
                        color: page.theme.mutedText
                        font.pixelSize: 12
                        wrapMode: Text.WordWrap
                        Layout.fillWidth: true
                        onLinkActivated: link => Qt.openUrlExternally(link)
                        Accessible.name: "Bugs, ideas, switch requests: all welcome — hello@morvane.app"
                        HoverHandler { cursorShape: parent.hoveredLink ? Qt.PointingHandCursor : Qt.ArrowCursor }
                    }
                }
            }
        }

        Text {
            text: "Your typing"
            color: page.theme.text
            font.pixelSize: 16
            font.bold: true
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }

        GridLayout {
            columns: 3
            rowSpacing: 10
            columnSpacing: 10
            Layout.fillWidth: true

            StatCard {
                theme: page.theme
                title: "Keystrokes"
                value: page.count(page.settings.keystrokeCount)
                explanation: "Every key Tappix has played a sound for, since you installed it."
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 1
            }
            StatCard {
                theme: page.theme
                title: "Dings"
                value: page.count(page.settings.dingCount)
                explanation: "Times the typewriter bell rang on the return key. Turn it on on the Sound page."
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 1
            }
            StatCard {
                theme: page.theme
                title: "Clicks"
                value: page.count(page.settings.clickCount)
                explanation: "Mouse clicks Tappix has sounded. Turn them on on the Sound page."
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 1
            }
            StatCard {
                theme: page.theme
                title: "Best speed"
                value: page.speed(page.settings.bestWPM)
                explanation: "Your fastest burst of everyday typing, from at least 25 keystrokes."
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 1
            }
            StatCard {
                theme: page.theme
                title: "Average speed"
                value: page.speed(page.settings.averageWPM)
                explanation: "All your typing divided by the time you spent actually typing. Pauses longer than four seconds are excluded, so stepping away doesn't drag it down."
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 1
            }
            StatCard {
                theme: page.theme
                title: "Accuracy"
                value: page.percent(page.settings.accuracy)
                explanation: "How rarely you correct yourself: text keys ÷ (text keys + backspaces). Deleting a word with Ctrl+⌫ counts as one correction, and typos you never fix don't count at all."
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 1
            }
        }

        // The live card: the burst under way, else the last one, else an invitation.
        Card {
            id: live
            theme: page.theme
            readonly property bool typing: page.typing.isTyping
            readonly property bool hasBurst: page.typing.isTyping || page.typing.lastKeystrokes > 0
            Layout.fillWidth: true
            implicitHeight: liveColumn.implicitHeight + 28
            Accessible.role: Accessible.Grouping
            Accessible.name: "Live typing"

            ColumnLayout {
                id: liveColumn
                anchors.fill: parent
                anchors.margins: 14
                spacing: 6
                RowLayout {
                    spacing: 8
                    Rectangle {
                        width: 8
                        height: 8
                        radius: 4
                        color: live.typing ? page.theme.accent : page.theme.divider
                    }
                    Label {
                        text: live.typing ? "Typing now"
                                          : live.hasBurst ? "Your last burst" : "Waiting for keystrokes"
                        color: page.theme.text
                        font.pixelSize: 14
                        font.weight: Font.DemiBold
                        Accessible.name: text
                    }
                }
                Label {
                    visible: !live.hasBurst
                    text: "Type anywhere and your live speed and accuracy appear here."
                    color: page.theme.mutedText
                    font.pixelSize: 12
                    wrapMode: Text.WordWrap
                    Layout.fillWidth: true
                    Accessible.name: text
                }
                RowLayout {
                    visible: live.hasBurst
                    spacing: 28
                    Repeater {
                        model: [
                            { label: "Speed", value: page.speed(live.typing ? page.typing.sessionWPM : page.typing.lastWPM) },
                            { label: "Accuracy", value: page.percent(live.typing ? page.typing.sessionAccuracy : page.typing.lastAccuracy) },
                            { label: "Keystrokes", value: page.count(live.typing ? page.typing.sessionKeystrokes : page.typing.lastKeystrokes) }
                        ]
                        delegate: ColumnLayout {
                            required property var modelData
                            spacing: 0
                            Label {
                                text: modelData.value
                                color: page.theme.text
                                font.pixelSize: 20
                                font.bold: true
                                Accessible.name: modelData.label + ": " + text
                            }
                            Label {
                                text: modelData.label
                                color: page.theme.mutedText
                                font.pixelSize: 11
                            }
                        }
                    }
                }
                Label {
                    text: "Speed and accuracy come from key timing, never from what you type"
                    color: page.theme.mutedText
                    font.pixelSize: 11
                    font.italic: true
                    wrapMode: Text.WordWrap
                    Layout.fillWidth: true
                    Accessible.name: text
                }
            }
        }
    }
}

import QtQuick
import QtQuick.Controls.impl as Impl
import QtQuick.Layouts

// The applications that quiet Tappix while in front: one row each with its icon, name
// and a Remove button; then a button for the app last in front and a chooser of the
// apps running now. Shown under the "One of these apps is in front" switch.
ColumnLayout {
    id: list
    required property var theme
    required property var behaviour
    property bool choosing: false

    spacing: 0
    Layout.fillWidth: true
    Layout.leftMargin: 14
    Layout.rightMargin: 14
    Layout.bottomMargin: 10
    opacity: enabled ? 1 : 0.45

    component AppRow: RowLayout {
        id: appRow
        required property var theme
        required property string name
        required property string iconName
        required property string iconSource
        required property string buttonText
        required property string buttonName
        signal chosen()
        spacing: 10
        Layout.fillWidth: true
        Layout.preferredHeight: 36
        Impl.IconImage {
            name: appRow.iconName
            source: appRow.iconSource
            color: appRow.iconName === "" && appRow.iconSource.startsWith("qrc:") ? appRow.theme.mutedText : "transparent"
            sourceSize: Qt.size(24, 24)
            Layout.preferredWidth: 24
            Layout.preferredHeight: 24
            fillMode: Image.PreserveAspectFit
            Accessible.ignored: true
        }
        Text {
            text: appRow.name
            color: appRow.theme.text
            font.pixelSize: 13
            elide: Text.ElideRight
            Layout.fillWidth: true
            Accessible.name: text
        }
        ThemedButton {
            theme: appRow.theme
            text: appRow.buttonText
            implicitHeight: 26
            Accessible.name: appRow.buttonName
            onClicked: appRow.chosen()
        }
    }

    Text {
        visible: list.behaviour.sleepApps.count === 0
        text: "No apps yet. Bring one to the front, then come back and add it."
        color: list.theme.mutedText
        font.pixelSize: 11
        wrapMode: Text.WordWrap
        Layout.fillWidth: true
        Layout.bottomMargin: 6
        Accessible.name: text
    }
    Repeater {
        model: list.behaviour.sleepApps
        delegate: AppRow {
            required property int index
            required property string appId
            theme: list.theme
            buttonText: "Remove"
            buttonName: "Remove " + name
            onChosen: list.behaviour.removeSleepApp(index)
        }
    }
    RowLayout {
        spacing: 10
        Layout.topMargin: 4
        ThemedButton {
            theme: list.theme
            text: list.behaviour.frontAppName !== "" ? "Add " + list.behaviour.frontAppName
                                                      : "Add the app in front"
            enabled: list.behaviour.frontAppName !== "" && !list.behaviour.frontAppListed
            onClicked: list.behaviour.addFrontApp()
        }
        ThemedButton {
            theme: list.theme
            text: list.choosing ? "Done choosing" : "Choose a running app…"
            onClicked: {
                if (!list.choosing)
                    list.behaviour.refreshRunningApps()
                list.choosing = !list.choosing
            }
        }
    }
    Text {
        visible: list.choosing
        text: list.behaviour.runningApps.count === 0 ? "No other app has a window open."
                                                     : "Apps with a window open:"
        color: list.theme.mutedText
        font.pixelSize: 11
        Layout.topMargin: 10
        Layout.bottomMargin: 2
        Accessible.name: text
    }
    Repeater {
        model: list.choosing ? list.behaviour.runningApps : null
        delegate: AppRow {
            required property int index
            theme: list.theme
            buttonText: "Add"
            buttonName: "Add running app " + name
            onChosen: list.behaviour.addRunningApp(index)
        }
    }
}

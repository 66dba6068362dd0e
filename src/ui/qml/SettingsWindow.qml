import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The settings window: a sidebar of six pages and the page chosen.
Window {
    id: root
    required property var settings
    required property var theme
    required property var typing
    required property var panel
    required property var kits
    required property var mixes
    // The pages' own view models, by name.
    required property var models
    // Set by the application from the stored page.
    property string page: "sounds"

    readonly property var pages: [
        { id: "sounds", title: "Sound", symbol: "speaker-wave", themeName: "audio-volume-high-symbolic",
          subtitle: "Pick a switch and tune it." },
        { id: "mix", title: "Mix", symbol: "sliders", themeName: "preferences-other-symbolic",
          subtitle: "Give any part of the board its own sound." },
        { id: "create", title: "Create", symbol: "waveform", themeName: "audio-x-generic-symbolic",
          subtitle: "Design a switch of your own." },
        { id: "behaviour", title: "Behaviour", symbol: "gear", themeName: "preferences-system-symbolic",
          subtitle: "How Tappix lives on your desktop, and when it keeps quiet." },
        { id: "look", title: "Look", symbol: "palette", themeName: "applications-graphics-symbolic",
          subtitle: "Theme, and the on-screen keys." },
        { id: "about", title: "About", symbol: "info", themeName: "help-about-symbolic", subtitle: "" }
    ]
    readonly property var current: pages.find(p => p.id === page) || pages[0]

    title: "Tappix Settings"
    width: 820
    height: 680
    minimumWidth: 700
    minimumHeight: 520
    color: theme.background
    visible: false

    RowLayout {
        anchors.fill: parent
        spacing: 0

        SettingsSidebar {
            theme: root.theme
            pages: root.pages
            current: root.current.id
            onChosen: id => root.settings.lastSettingsPage = id
            Layout.fillHeight: true
        }

        Item {
            Layout.fillWidth: true
            Layout.fillHeight: true

            Loader {
                anchors.fill: parent
                anchors.margins: 28
                anchors.rightMargin: 16
                sourceComponent: ({ sounds: soundPage, mix: mixPage, create: createPage,
                                    behaviour: behaviourPage, look: lookPage,
                                    about: aboutPage })[root.current.id]
            }
        }
    }

    Component { id: soundPage; SoundPage { settings: root.settings; theme: root.theme; typing: root.typing; kits: root.kits; mixes: root.mixes; models: root.models } }
    Component { id: mixPage; MixPage { settings: root.settings; theme: root.theme; typing: root.typing; kits: root.kits; mixes: root.mixes; models: root.models } }
    Component { id: createPage; CreatePage { settings: root.settings; theme: root.theme; typing: root.typing; kits: root.kits; mixes: root.mixes; models: root.models } }
    Component { id: behaviourPage; BehaviourPage { settings: root.settings; theme: root.theme; typing: root.typing; kits: root.kits; mixes: root.mixes; models: root.models } }
    Component { id: lookPage; LookPage { settings: root.settings; theme: root.theme; typing: root.typing; kits: root.kits; mixes: root.mixes; models: root.models } }
    Component { id: aboutPage; AboutPage { settings: root.settings; theme: root.theme; typing: root.typing } }

    WindowShortcuts { panel: root.panel }
}

import QtQuick
import QtQuick.Controls
import Halvenmark.Desktop

ApplicationWindow {
    id: window
    width: 1000
    height: 720
    minimumWidth: 560
    minimumHeight: 440
    visible: true
    title: "Halvenmark"
    color: Theme.background

    palette.window: Theme.background
    palette.windowText: Theme.text
    palette.base: Theme.surface
    palette.text: Theme.text
    palette.button: Theme.raised
    palette.buttonText: Theme.text
    palette.highlight: Theme.accent
    palette.highlightedText: "#ffffff"
    palette.placeholderText: Theme.subtle
    palette.mid: Theme.border
    palette.dark: Theme.accent
    palette.light: Theme.surface
    palette.alternateBase: Theme.raised
    palette.toolTipBase: Theme.raised
    palette.toolTipText: Theme.text

    Component.onCompleted: {
        const saved = App.windowGeometry()
        if (saved.width > 0 && saved.height > 0) {
            x = saved.x
            y = saved.y
            width = saved.width
            height = saved.height
        }
    }
    onClosing: App.saveWindowGeometry(Qt.rect(x, y, width, height))
    onActiveChanged: if (active) App.activated()

    // Hebrew turns the whole window around at once.
    Item {
        id: root
        objectName: "root"
        anchors.fill: parent
        LayoutMirroring.enabled: Lang.rtl
        LayoutMirroring.childrenInherit: true

        Loader {
            id: screen
            objectName: "screen"
            anchors.fill: parent
            sourceComponent: !App.onboarded ? intro : App.gate === "out" ? signIn : shell
        }
        Component { id: intro; Intro {} }
        Component { id: signIn; SignIn {} }
        Component { id: shell; Shell {} }
    }
}

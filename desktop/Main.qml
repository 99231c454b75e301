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
    Surface {
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

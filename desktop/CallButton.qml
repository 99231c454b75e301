import QtQuick
import QtQuick.Controls
import Halvenmark.Desktop

// The way into a live call, for accounts that have one: opens the call screen over the
// window and starts the call. While a call runs the button shows it.
ToolButton {
    id: button
    property CallController controller: App.call
    // The call screen's sheet over the window.
    readonly property alias sheet: sheet
    objectName: "callOpenButton"
    visible: controller !== null && (controller.call.available || controller.active)
    focusPolicy: Qt.NoFocus
    text: controller && controller.active ? "☎ " + controller.phaseText : "☎"
    ToolTip.visible: hovered
    ToolTip.text: Lang.t("שיחה קולית", "Voice call", "Голосовой звонок")
    onClicked: {
        if (!controller.active)
            controller.start()
        sheet.open()
    }

    onControllerChanged: if (!controller) sheet.close()

    // A check that could not reach the server is tried again when the window comes back.
    Connections {
        target: Qt.application
        function onStateChanged() {
            if (Qt.application.state === Qt.ApplicationActive && button.controller)
                button.controller.recheck()
        }
    }

    Popup {
        id: sheet
        parent: Overlay.overlay
        width: parent ? parent.width : 0
        height: parent ? parent.height : 0
        modal: true
        focus: true
        padding: 0
        closePolicy: Popup.NoAutoClose
        onOpened: {
            if (body.item)
                body.item.forceActiveFocus()
        }
        // Made while shown, and only with a call behind it.
        contentItem: Loader {
            id: body
            objectName: "callSheet"
            active: sheet.visible && button.controller !== null
            focus: true
            sourceComponent: CallScreen {
                controller: button.controller
                onCloseRequested: sheet.close()
            }
        }
    }
}

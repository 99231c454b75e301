import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The notification chain checked end to end: this computer, this device's registration, the
// server's readiness with each problem explained, and a test notification.
Dialog {
    id: sheet
    objectName: "notificationsSheet"
    anchors.centerIn: Overlay.overlay
    width: Math.min(Overlay.overlay ? Overlay.overlay.width - 40 : 520, 520)
    modal: true
    title: Lang.t("בדיקת התראות", "Notification check", "Проверка уведомлений")

    onOpened: Notify.checkStatus()

    component Line: RowLayout {
        property string mark
        property string text
        property color tone: Theme.text
        Layout.fillWidth: true
        spacing: 8
        Label { text: parent.mark; color: parent.tone; Layout.alignment: Qt.AlignTop }
        Label { text: parent.text; Layout.fillWidth: true; wrapMode: Text.Wrap }
    }

    ColumnLayout {
        width: parent.width
        spacing: 10
        LayoutMirroring.enabled: Lang.rtl
        LayoutMirroring.childrenInherit: true

        Line {
            objectName: "pushPermission"
            mark: "●"
            text: { Lang.code; return Notify.permissionText }
        }
        Line {
            objectName: "pushDevice"
            mark: "●"
            text: { Lang.code; return Notify.deviceText }
        }
        Line {
            objectName: "pushServer"
            visible: text !== ""
            mark: "●"
            tone: Notify.failure !== "" || Notify.problems.length > 0 ? Theme.danger : Theme.text
            text: { Lang.code; return Notify.serverText }
        }
        Repeater {
            objectName: "pushProblems"
            model: { Lang.code; return Notify.problems }
            delegate: Line {
                required property string modelData
                Layout.leftMargin: 20
                mark: "–"
                tone: Theme.danger
                text: modelData
            }
        }
        RowLayout {
            Button {
                objectName: "pushTest"
                text: Lang.t("שליחת התראת בדיקה", "Send a test notification", "Отправить тестовое уведомление")
                enabled: !Notify.loading
                onClicked: Notify.sendTest()
            }
            BusyIndicator {
                running: Notify.loading
                implicitWidth: 24
                implicitHeight: 24
            }
        }
        Label {
            objectName: "pushTestResult"
            Layout.fillWidth: true
            visible: text !== ""
            text: { Lang.code; return Notify.testText }
            wrapMode: Text.Wrap
        }
    }
    footer: DialogButtonBox {
        // A popup does not inherit the page's direction.
        LayoutMirroring.enabled: Lang.rtl
        Button {
            objectName: "pushClose"
            text: Lang.t("סגירה", "Close", "Закрыть")
            DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// Asks this computer account's password for the vault. The typed text goes straight to the
// check and is wiped from the field.
Dialog {
    id: dialog
    objectName: "passwordDialog"
    anchors.centerIn: Overlay.overlay
    modal: true
    closePolicy: Popup.CloseOnEscape
    title: Lang.t("סיסמת החשבון", "Account password", "Пароль учётной записи")

    ColumnLayout {
        width: 360
        spacing: 8
        LayoutMirroring.enabled: Lang.rtl
        LayoutMirroring.childrenInherit: true
        Label {
            Layout.fillWidth: true
            text: Vault.askReason
            wrapMode: Text.Wrap
        }
        TextField {
            id: field
            objectName: "passwordField"
            Layout.fillWidth: true
            echoMode: TextInput.Password
            inputMethodHints: Qt.ImhSensitiveData | Qt.ImhNoPredictiveText
            placeholderText: Lang.t("סיסמה", "Password", "Пароль")
            onAccepted: dialog.accept()
        }
    }
    footer: DialogButtonBox {
        Button {
            text: Lang.t("ביטול", "Cancel", "Отмена")
            DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
        }
        Button {
            objectName: "passwordOk"
            text: { Lang.code; return Vault.texts().unlock }
            highlighted: true
            DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
        }
    }
    onOpened: field.forceActiveFocus()
    onAccepted: {
        Vault.answerPassword(field.text)
        field.clear()
    }
    // Escape, Cancel, or the window left: the prompt ends as cancelled.
    onClosed: {
        field.clear()
        Vault.cancelPassword()
    }
}

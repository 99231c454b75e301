import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// Language, appearance, skin, and the account.
ScrollView {
    id: settings
    contentWidth: availableWidth

    ColumnLayout {
        width: Math.min(settings.availableWidth - 48, 640)
        x: 24
        spacing: 14

        Item { height: 8 }
        Label {
            text: Lang.t("הגדרות", "Settings", "Настройки")
            font.pixelSize: 22
            font.bold: true
        }

        Label { text: Lang.t("שפה", "Language", "Язык"); font.bold: true }
        LanguagePicker { objectName: "languagePicker" }

        Label { text: Lang.t("מראה", "Appearance", "Оформление"); font.bold: true }
        RowLayout {
            Repeater {
                model: ["light", "dark", "auto"]
                delegate: RadioButton {
                    required property string modelData
                    objectName: "appearance_" + modelData
                    checked: App.appearance === modelData
                    text: modelData === "light" ? Lang.t("בהיר", "Light", "Светлое")
                        : modelData === "dark" ? Lang.t("כהה", "Dark", "Тёмное")
                        : Lang.t("לפי המערכת", "Follow the system", "Как в системе")
                    onClicked: App.appearance = modelData
                }
            }
        }

        Label { text: Lang.t("ערכת צבעים", "Skin", "Цветовая схема"); font.bold: true }
        RowLayout {
            Repeater {
                model: ["classic", "ocean", "forest"]
                delegate: RadioButton {
                    required property string modelData
                    checked: App.skin === modelData
                    text: modelData === "classic" ? Lang.t("קלאסי", "Classic", "Классическая")
                        : modelData === "ocean" ? Lang.t("אוקיינוס", "Ocean", "Океан")
                        : Lang.t("יער", "Forest", "Лес")
                    onClicked: App.skin = modelData
                }
            }
        }

        Label { text: Lang.t("חשבון", "Account", "Аккаунт"); font.bold: true }
        Label {
            text: App.session.label + (App.session.email !== "" ? " · " + App.session.email : "")
            color: Theme.subtle
        }
        Label {
            Layout.fillWidth: true
            visible: text !== ""
            text: App.error
            color: Theme.danger
            wrapMode: Text.Wrap
        }
        RowLayout {
            Button {
                objectName: "signOutButton"
                text: Lang.t("יציאה", "Sign out", "Выйти")
                enabled: !App.busy
                onClicked: {
                    if (App.chat && App.chat.store.queuedCount > 0)
                        unsent.open()
                    else
                        App.signOut()
                }
            }
            Button {
                objectName: "deleteAccountButton"
                text: Lang.t("מחיקת החשבון…", "Delete account…", "Удалить аккаунт…")
                enabled: !App.busy
                palette.buttonText: Theme.danger
                onClicked: confirmDelete.open()
            }
        }
        Label { text: Lang.t("התראות", "Notifications", "Уведомления"); font.bold: true }
        Button {
            objectName: "notificationsCheck"
            text: Lang.t("בדיקת התראות…", "Check notifications…", "Проверить уведомления…")
            onClicked: notificationsSheet.open()
        }
        Item { height: 16 }
    }

    Dialog {
        id: unsent
        objectName: "unsentDialog"
        anchors.centerIn: Overlay.overlay
        modal: true
        title: Lang.t("יש הודעות שלא נשלחו", "Some messages were not sent", "Есть неотправленные сообщения")
        standardButtons: Dialog.Cancel
        Label {
            width: 360
            wrapMode: Text.Wrap
            text: { Lang.code; return App.t("%1 הודעות עדיין ממתינות במכשיר הזה. ביציאה הן יימחקו ממנו.",
                                            "%1 messages are still waiting on this device. Signing out deletes them from it.",
                                            "На этом устройстве ждут отправки сообщений: %1. При выходе они будут удалены.")
                                       .arg(App.chat ? App.chat.store.queuedCount : 0) }
        }
        footer: DialogButtonBox {
            Button {
                text: Lang.t("להישאר", "Stay", "Остаться")
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                text: Lang.t("יציאה בכל זאת", "Sign out anyway", "Всё равно выйти")
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
        }
        onAccepted: App.signOut()
    }

    Dialog {
        id: confirmDelete
        objectName: "deleteDialog"
        anchors.centerIn: Overlay.overlay
        modal: true
        title: Lang.t("למחוק את החשבון?", "Delete the account?", "Удалить аккаунт?")
        Label {
            width: 360
            wrapMode: Text.Wrap
            text: Lang.t("החשבון, השיחות והקבצים יימחקו מהשרת לצמיתות. אי אפשר לבטל זאת.",
                         "The account, its conversations and files are deleted from the server for good. This cannot be undone.",
                         "Аккаунт, разговоры и файлы будут навсегда удалены с сервера. Это нельзя отменить.")
        }
        footer: DialogButtonBox {
            Button {
                text: Lang.t("ביטול", "Cancel", "Отмена")
                DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
            }
            Button {
                objectName: "confirmDeleteButton"
                text: Lang.t("מחיקה לצמיתות", "Delete for good", "Удалить навсегда")
                palette.buttonText: Theme.danger
                DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
            }
        }
        onAccepted: App.deleteAccount()
    }

    NotificationsSheet { id: notificationsSheet }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// User name and password, or a one-time code. The user name has the focus; Tab goes to the
// password; Enter signs in.
Item {
    id: signIn
    property bool withToken: false

    function submit() {
        if (App.busy)
            return
        if (withToken)
            App.signInWithToken(token.text)
        else
            App.signIn(user.text, password.text)
    }

    Rectangle {
        anchors.centerIn: parent
        width: Math.min(parent.width - 32, 440)
        height: form.implicitHeight + 48
        radius: 10
        color: Theme.surface
        border.color: Theme.border

        ColumnLayout {
            id: form
            anchors.fill: parent
            anchors.margins: 24
            spacing: 12

            Label {
                text: "Halvenmark"
                font.pixelSize: 24
                font.bold: true
                color: Theme.accent
            }
            Label {
                objectName: "exitReason"
                Layout.fillWidth: true
                visible: text !== ""
                text: { Lang.code; return App.session.exitText }
                wrapMode: Text.Wrap
                color: Theme.subtle
            }
            TextField {
                id: user
                objectName: "userField"
                Layout.fillWidth: true
                visible: !signIn.withToken
                focus: !signIn.withToken
                horizontalAlignment: TextInput.AlignLeft
                placeholderText: Lang.t("שם משתמש", "User name", "Имя пользователя")
                inputMethodHints: Qt.ImhNoAutoUppercase | Qt.ImhNoPredictiveText
                KeyNavigation.tab: password
                onAccepted: password.text === "" ? password.forceActiveFocus() : signIn.submit()
            }
            TextField {
                id: password
                objectName: "passwordField"
                Layout.fillWidth: true
                visible: !signIn.withToken
                horizontalAlignment: TextInput.AlignLeft
                echoMode: TextInput.Password
                placeholderText: Lang.t("סיסמה", "Password", "Пароль")
                KeyNavigation.tab: submitButton
                onAccepted: signIn.submit()
            }
            TextField {
                id: token
                objectName: "tokenField"
                Layout.fillWidth: true
                visible: signIn.withToken
                focus: signIn.withToken
                horizontalAlignment: TextInput.AlignLeft
                placeholderText: Lang.t("קוד כניסה חד־פעמי", "One-time sign-in code", "Одноразовый код входа")
                onAccepted: signIn.submit()
            }
            Label {
                objectName: "signInError"
                Layout.fillWidth: true
                visible: text !== ""
                text: App.error
                wrapMode: Text.Wrap
                color: Theme.danger
            }
            Button {
                id: submitButton
                objectName: "signInButton"
                Layout.fillWidth: true
                highlighted: true
                enabled: !App.busy
                text: App.busy ? Lang.t("נכנסים…", "Signing in…", "Вход…") : Lang.t("כניסה", "Sign in", "Войти")
                onClicked: signIn.submit()
            }
            RowLayout {
                Layout.fillWidth: true
                Button {
                    objectName: "tokenSwitch"
                    flat: true
                    text: signIn.withToken ? Lang.t("כניסה עם סיסמה", "Sign in with a password", "Войти с паролем")
                                           : Lang.t("יש לי קוד חד־פעמי", "I have a one-time code", "У меня есть одноразовый код")
                    onClicked: {
                        App.clearError()
                        signIn.withToken = !signIn.withToken
                        if (signIn.withToken)
                            token.forceActiveFocus()
                        else
                            user.forceActiveFocus()
                    }
                }
            }
        }
    }
    LanguagePicker {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 24
    }
    Component.onCompleted: user.forceActiveFocus()
}

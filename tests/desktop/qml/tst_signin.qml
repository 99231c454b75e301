import QtQuick
import QtTest
import Halvenmark.Desktop

Surface {
    id: top
    width: 900
    height: 640
    LayoutMirroring.enabled: Lang.rtl
    LayoutMirroring.childrenInherit: true

    Component {
        id: signInComponent
        SignIn { anchors.fill: parent }
    }

    TestCase {
        name: "SignIn"
        when: windowShown

        function init() {
            fixture.language("en")
            App.clearError()
        }

        function test_focusOrder() {
            const form = createTemporaryObject(signInComponent, top)
            const user = findChild(form, "userField")
            const password = findChild(form, "passwordField")
            tryVerify(() => user.activeFocus)
            keyClick(Qt.Key_Tab)
            verify(password.activeFocus)
        }

        function test_enterMovesOnThenSignsIn() {
            const form = createTemporaryObject(signInComponent, top)
            const user = findChild(form, "userField")
            const password = findChild(form, "passwordField")
            tryVerify(() => user.activeFocus)
            // Enter with no password yet goes to the password, without a sign-in attempt.
            keyClick(Qt.Key_Return)
            verify(password.activeFocus)
            compare(App.error, "")
            // Enter there signs in; an empty user name is refused on the spot.
            keyClick("x")
            keyClick(Qt.Key_Return)
            compare(App.error, "Enter your user name and password.")
        }

        function test_languageFlip_data() {
            return [
                { tag: "he", code: "he", text: "כניסה", mirrored: true },
                { tag: "ru", code: "ru", text: "Войти", mirrored: false },
                { tag: "en", code: "en", text: "Sign in", mirrored: false }
            ]
        }

        function test_languageFlip(data) {
            const form = createTemporaryObject(signInComponent, top)
            const button = findChild(form, "signInButton")
            const user = findChild(form, "userField")
            fixture.language(data.code)
            compare(button.text, data.text)
            compare(button.mirrored, data.mirrored)
            compare(user.effectiveHorizontalAlignment === TextInput.AlignRight, data.mirrored)
        }
    }
}

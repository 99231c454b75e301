import QtQuick
import QtTest
import Halvenmark.Desktop

Surface {
    id: top
    width: 800
    height: 600

    Component {
        id: chatComponent
        ChatPage { anchors.fill: parent; chat: testChat }
    }

    TestCase {
        name: "Composer"
        when: windowShown

        function init() {
            testChat.store.composerText = ""
        }

        function test_enterSendsShiftEnterBreaks() {
            fixture.language("en")
            const page = createTemporaryObject(chatComponent, top)
            const area = findChild(page, "composerArea")
            tryVerify(() => area.activeFocus)
            const before = testChat.pending.length
            keyClick("a")
            keyClick(Qt.Key_Return, Qt.ShiftModifier)
            keyClick("b")
            compare(area.text, "a\nb")
            compare(testChat.pending.length, before)
            compare(testChat.store.composerText, "a\nb")

            keyClick(Qt.Key_Return)
            tryCompare(area, "text", "")
            compare(testChat.pending.length, before + 1)
            const turn = testChat.pending[testChat.pending.length - 1]
            compare(turn.text, "a\nb")
            // The card under the last row says what the turn waits for.
            tryVerify(() => findChild(page, "pending_" + testChat.pending[testChat.pending.length - 1].state) !== null)
        }

        function test_recordButtonNeverMakesATurnByItself() {
            fixture.language("en")
            const page = createTemporaryObject(chatComponent, top)
            const before = testChat.pending.length
            mouseClick(findChild(page, "recordButton"))
            // Without a sound server the microphone is refused and the composer says why;
            // with one, the level shows and a cancel keeps nothing.
            tryVerify(() => testChat.recording || testChat.recordError !== "")
            if (testChat.recording) {
                verify(findChild(page, "recordLevel").visible)
                mouseClick(findChild(page, "recordCancel"))
                verify(!testChat.recording)
            } else {
                tryCompare(findChild(page, "sendError"), "text", testChat.recordError)
                verify(findChild(page, "composerArea").visible)
            }
            compare(testChat.pending.length, before)
        }

        function test_refusedTurnGoesBackToTheComposer() {
            fixture.language("en")
            const page = createTemporaryObject(chatComponent, top)
            const area = findChild(page, "composerArea")
            tryVerify(() => area.activeFocus)
            keyClick("z")
            keyClick(Qt.Key_Return)
            const before = testChat.pending.length
            verify(before > 0)
            // Nothing answers on the test server's port: the first turn waits for Retry, kept
            // on disk; those after it wait their turn.
            tryVerify(() => testChat.pending[0].state === "failed", 10000)
            const head = testChat.pending[0]
            const card = findChild(page, "pending_failed")
            verify(card)
            verify(findChild(card, "retryButton").visible)
            // Taking it back keeps a draft that is already in the composer.
            keyClick("d")
            mouseClick(findChild(card, "discardButton"))
            tryCompare(area, "text", "d\n" + head.text)
            compare(testChat.pending.length, before - 1)
            verify(testChat.pending.every(t => t.id !== head.id))
        }

        function test_blankEnterSendsNothing() {
            const page = createTemporaryObject(chatComponent, top)
            const area = findChild(page, "composerArea")
            tryVerify(() => area.activeFocus)
            const before = testChat.pending.length
            keyClick(Qt.Key_Space)
            keyClick(Qt.Key_Return)
            compare(testChat.pending.length, before)
        }
    }
}

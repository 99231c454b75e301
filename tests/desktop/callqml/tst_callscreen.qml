import QtQuick
import QtTest
import Halvenmark.Desktop

// The call screen in a call, in English and Hebrew, saved as PNG files; its sheet and keys
// from the toolbar button; a failure with the retry.
Surface {
    id: top
    width: 900
    height: 640

    Component { id: screenComponent; CallScreen { controller: testCall } }
    Component { id: buttonComponent; CallButton { controller: testCall } }

    TestCase {
        name: "CallScreen"
        when: windowShown

        function serve(frame) { fixture.serve(JSON.stringify(frame)) }

        // A call in the middle of the agent's answer, with work going on around it.
        function callUnderWay() {
            if (testCall.active)
                return
            testCall.start()
            serve({ type: "ready", voice: "Orus", provider: "openai" })
            serve({ type: "input_activity", active: true })
            serve({ type: "user_text", text: "Book me a table for two tonight, somewhere quiet." })
            serve({ type: "input_activity", active: false })
            serve({ type: "turn_started" })
            serve({ type: "bot_text", text: "I found three quiet places near you. " })
            serve({ type: "bot_text", text: "Shall I book the first one at eight?" })
            serve({ type: "turn_complete" })
            serve({ type: "input_activity", active: true })
            serve({ type: "user_text", text: "כן, ותוסיף את זה ליומן שלי." })
            serve({ type: "input_activity", active: false })
            serve({ type: "turn_started" })
            serve({ type: "bot_text", text: "Booking it now and adding it to your calendar." })
            serve({ type: "agent_call", call_id: "c1", title: "Booking a table at Mizlala" })
            serve({ type: "agent_progress", call_id: "c1", text: "Checking the free slots" })
            serve({ type: "task_created", task_id: "t2", title: "Add dinner to the calendar" })
            serve({ type: "agent_result", call_id: "t2", task_id: "t2", title: "Calendar updated" })
            serve({ type: "fast_response_started", call_id: "f1", query: "quiet restaurants open tonight", effort: "low" })
            serve({ type: "fast_response_finished", call_id: "f1",
                    answer: "Mizlala, Ouzeria and Port Said have tables after 20:00.",
                    sources: [{ title: "Tel Aviv dining guide", url: "https://example.com/guide" },
                              { title: "Ouzeria — bookings", url: "https://example.com/ouzeria" }] })
            serve({ type: "audio", data: Qt.btoa("\u0010\u0010".repeat(12000)) })
            // The agent's voice comes back into the microphone: the gate learns its echo.
            for (let i = 0; i < 6; ++i)
                fixture.speak(testCall, 400)
            fixture.speak(testCall, 2500)
        }

        function test_screen_data() {
            return [
                { tag: "call-en", lang: "en", phase: "Speaking" },
                { tag: "call-he", lang: "he", phase: "מדבר" }
            ]
        }

        function test_screen(data) {
            fixture.language(data.lang)
            callUnderWay()
            const screen = createTemporaryObject(screenComponent, top, { width: top.width, height: top.height })
            verify(screen)
            waitForRendering(screen)
            wait(100)
            compare(findChild(screen, "phaseText").text, data.phase)
            const lines = testCall.call.lines
            compare(findChild(screen, "transcript").count, lines.length)
            compare(lines[lines.length - 1].text, "Booking it now and adding it to your calendar.")
            verify(findChild(screen, "meterEcho").visible)
            // The controls end the row: on the right, or on the left in Hebrew.
            const hangUp = findChild(screen, "hangUpButton")
            verify(hangUp.visible)
            compare(hangUp.mapToItem(top, hangUp.width / 2, 0).x > top.width / 2, data.lang !== "he")
            grabImage(top).save(shotFolder + "/" + data.tag + ".png")

            // The settings: the sound server's default first, then the devices; the voice chosen.
            mouseClick(findChild(screen, "settingsTab"))
            const outputs = findChild(screen, "outputDevice")
            tryCompare(outputs, "count", 3)
            compare(outputs.currentIndex, 0)
            compare(findChild(screen, "voiceChoice").currentText, "Orus")
            waitForRendering(screen)
            grabImage(top).save(shotFolder + "/" + data.tag + "-settings.png")
        }

        // From the toolbar: the sheet opens with the call and takes the keys.
        function test_button() {
            fixture.language("en")
            testCall.hangUp()
            const button = createTemporaryObject(buttonComponent, top)
            button.clicked()
            verify(testCall.active)
            tryVerify(() => button.sheet.opened)
            const muted = testCall.call.muted
            keyClick(Qt.Key_Space)
            compare(testCall.call.muted, !muted)
            compare(button.sheet.contentItem.item.objectName, "callScreen")
            compare(findChild(button.sheet.contentItem.item, "muteButton").checked, !muted)
            keyClick(Qt.Key_Escape)
            verify(!testCall.active)
            tryVerify(() => !button.sheet.visible)
            verify(!fixture.deviceOpen())
            compare(testCall.call.notice, "Call ended. Background tasks keep running.")
            if (testCall.call.muted !== muted)
                testCall.toggleMute()
        }

        function test_failure_data() {
            return [
                { tag: "en", lang: "en", retry: "Try again" },
                { tag: "he", lang: "he", retry: "לנסות שוב" }
            ]
        }

        function test_failure(data) {
            fixture.language(data.lang)
            testCall.hangUp()
            testCall.start()
            serve({ type: "ready" })
            serve({ type: "error", error: "voice_key_missing", detail: "" })
            const screen = createTemporaryObject(screenComponent, top, { width: top.width, height: top.height })
            waitForRendering(screen)
            verify(findChild(screen, "failureBanner").visible)
            verify(!findChild(screen, "hangUpButton").visible)
            verify(findChild(screen, "failureText").text !== "")
            const retry = findChild(screen, "retryButton")
            compare(retry.text, data.retry)
            grabImage(top).save(shotFolder + "/call-failed-" + data.lang + ".png")
            mouseClick(retry)
            verify(testCall.active)
            verify(!findChild(screen, "failureBanner").visible)
            testCall.hangUp()
        }
    }
}

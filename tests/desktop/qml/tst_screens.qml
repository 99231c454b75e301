import QtQuick
import QtTest
import Halvenmark.Desktop

// The main screens in the three languages at a fixed size and font, saved as PNG files.
Surface {
    id: top
    width: 900
    height: 640
    LayoutMirroring.enabled: Lang.rtl
    LayoutMirroring.childrenInherit: true

    Component { id: signIn; SignIn {} }
    Component { id: chat; ChatPage { chat: testChat } }
    Component { id: settings; SettingsPage {} }

    TestCase {
        name: "Screens"
        when: windowShown

        function initTestCase() {
            fixture.messages(JSON.stringify([
                { seq: 1, role: "user", text: "When is the next bus to Haifa?", created_at: 1740000000 },
                { seq: 2, role: "assistant", created_at: 1740000060,
                  reply_to_id: "1", reply_to_role: "user", reply_to_text: "When is the next bus to Haifa?",
                  text: "שלום! מצאתי את זמני האוטובוס.\n\n| line | time |\n|---|---|\n| 12 | 07:05 |\n| 40 | 07:35 |\n\nהסקריפט נמצא ב-/usr/local/bin/bus ואפשר להריץ אותו משם.\nMore in the [timetable](https://example.com/bus). **Leave ten minutes early.**" }
            ]))
        }

        function test_screen_data() {
            const rows = []
            for (const screen of ["signin", "chat", "settings"])
                for (const lang of ["en", "ru", "he"])
                    rows.push({ tag: screen + "-" + lang, screen: screen, lang: lang })
            return rows
        }

        function test_screen(data) {
            fixture.language(data.lang)
            const component = data.screen === "signin" ? signIn : data.screen === "chat" ? chat : settings
            const screen = createTemporaryObject(component, top, { width: top.width, height: top.height })
            verify(screen)
            waitForRendering(screen)
            wait(100)
            const image = grabImage(top)
            image.save(shotFolder + "/" + data.tag + ".png")
            // Not blank: the screen has drawn something other than its background.
            let differing = 0
            for (let x = 20; x < top.width; x += 40)
                for (let y = 20; y < top.height; y += 40)
                    if (!Qt.colorEqual(image.pixel(x, y), Theme.background))
                        ++differing
            verify(differing > 10, "only " + differing + " drawn samples")

            if (data.screen === "chat") {
                const list = findChild(screen, "chatList")
                tryVerify(() => list.count === 2)
                // The user's bubble sits on the trailing side: right, or left in Hebrew.
                const mine = list.itemAtIndex(0)
                const bubble = findChild(mine, "bubble")
                const centre = bubble.mapToItem(top, bubble.width / 2, 0).x
                compare(centre > top.width / 2, data.lang !== "he")
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtTest
import Halvenmark.Desktop

// The vault (locked and unlocked), the health panel and the notification check, in English
// and Hebrew at a fixed size and font, saved as PNG files.
Surface {
    id: top
    width: 900
    height: 640
    LayoutMirroring.enabled: Lang.rtl
    LayoutMirroring.childrenInherit: true

    Component { id: vaultPage; VaultPage {} }
    Component { id: healthPage; HealthPage {} }
    Component { id: settingsPage; SettingsPage {} }

    TestCase {
        name: "Features"
        when: windowShown

        function initTestCase() {
            fixture.seedVault()
            Health.linkExport(fixture.healthExportUrl())
            tryVerify(() => Health.linked && !Health.syncing && Health.workouts.length === 2, 10000,
                      "the export was not uploaded: " + Health.failure)
        }

        function shoot(tag) {
            wait(100)
            // The window's content with its popups above it.
            const image = grabImage(top.parent)
            image.save(shotFolder + "/" + tag + ".png")
            return image
        }

        function test_vault_data() {
            return [{ tag: "en", lang: "en" }, { tag: "he", lang: "he" }]
        }

        function test_vault(data) {
            fixture.language(data.lang)
            Vault.lock()
            fixture.active(true)
            const page = createTemporaryObject(vaultPage, top, { width: top.width, height: top.height })
            verify(page)
            const locked = findChild(page, "vaultLocked")
            tryVerify(() => locked.visible)
            waitForRendering(page)
            shoot("vault-locked-" + data.lang)

            mouseClick(findChild(page, "unlockButton"))
            const list = findChild(page, "vaultItems")
            tryVerify(() => Vault.unlocked && Vault.total >= 3 && list.count === Vault.total)
            verify(!locked.visible)

            // Reveal the login (the primary one, listed by the server newest first).
            let login = -1
            for (let i = 0; i < Vault.items.length; ++i)
                if (Vault.items[i].kind === "login") login = i
            verify(login >= 0)
            mouseClick(findChild(page, "reveal_" + Vault.items[login].id))
            tryCompare(Vault, "revealedValue", "k7#Rq2!vZ9")
            waitForRendering(page)
            shoot("vault-unlocked-" + data.lang)

            // Search and kinds narrow the list; the text is kept.
            Vault.query = "weather"
            tryCompare(list, "count", 1)
            Vault.query = ""
            Vault.kind = "card"
            tryCompare(list, "count", 1)
            Vault.kind = ""

            // Leaving the page hides the secret; leaving the window locks everything.
            page.visible = false
            compare(Vault.revealedValue, "")
            page.visible = true
            fixture.active(false)
            verify(!Vault.unlocked)
            compare(list.count, 0)
            verify(locked.visible)
        }

        function test_signature() {
            fixture.language("en")
            fixture.active(true)
            const page = createTemporaryObject(vaultPage, top, { width: top.width, height: top.height })
            mouseClick(findChild(page, "unlockButton"))
            tryVerify(() => Vault.unlocked && Vault.total === 3)
            mouseClick(findChild(page, "vaultAdd"))
            const editor = findChild(page, "vaultItemDialog")
            tryVerify(() => editor.opened)
            editor.kind = "signature"
            const title = findChild(editor.contentItem, "field_title")
            title.forceActiveFocus()
            title.text = "My signature"
            editor.setValue("title", "My signature")
            let area = null
            tryVerify(() => (area = findChild(editor.contentItem, "signatureArea")) !== null)
            tryVerify(() => area.visible && area.width > 0 && area.height > 0)
            waitForRendering(editor.contentItem)
            mousePress(area, 20, 30)
            for (let x = 20; x <= 220; x += 20)
                mouseMove(area, x, 30 + (x % 40))
            mouseRelease(area, 220, 40)
            verify(editor.values.signature.indexOf("data:image/png;base64,") === 0)
            waitForRendering(editor.contentItem)
            shoot("vault-signature-en")
            mouseClick(findChild(editor.footer, "vaultSave"))
            tryVerify(() => !editor.visible && Vault.total === 4, 5000, "not saved: " + Vault.actionError)
            let id = ""
            for (const item of Vault.items)
                if (item.kind === "signature") id = item.id
            Vault.reveal(id)
            tryVerify(() => Vault.revealedId === id && Vault.revealedIsImage)
            Vault.lock()
        }

        function test_health_data() {
            return [{ tag: "en", lang: "en" }, { tag: "he", lang: "he" }]
        }

        function test_health(data) {
            fixture.language(data.lang)
            const page = createTemporaryObject(healthPage, top, { width: top.width, height: top.height })
            verify(page)
            const unavailable = findChild(page, "healthUnavailable")
            compare(unavailable.text.replace("\u200F", ""), Health.unavailableText())
            tryVerify(() => !Health.syncing)
            compare(Health.workouts.length, 2)
            compare(findChild(page, "healthFailure").visible, false)
            waitForRendering(page)
            shoot("health-" + data.lang)
        }

        function test_pushSheet_data() {
            return [{ tag: "en", lang: "en" }, { tag: "he", lang: "he" }]
        }

        function test_pushSheet(data) {
            fixture.language(data.lang)
            fixture.pushProblems(["apns_key_missing", "apns_team_missing"])
            const page = createTemporaryObject(settingsPage, top, { width: top.width, height: top.height })
            verify(page)
            mouseClick(findChild(page, "notificationsCheck"))
            const sheet = findChild(page, "notificationsSheet")
            tryVerify(() => sheet.opened)
            tryVerify(() => Notify.loaded && !Notify.loading && Notify.problems.length === 2)
            verify(Notify.serverText !== "")
            const problems = findChild(sheet.contentItem, "pushProblems")
            compare(problems.count, 2)
            waitForRendering(page)
            shoot("push-status-" + data.lang)
            sheet.close()
            tryVerify(() => !sheet.visible)
        }
    }
}

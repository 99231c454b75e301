import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The vault: locked until the account's password is given, then the secrets without their
// values; one is revealed at a time and hidden again when the page is left.
Item {
    id: page
    readonly property var texts: { Lang.code; return Vault.texts() }

    // Leaving the page hides what was shown.
    onVisibleChanged: if (!visible) Vault.hide()

    PasswordDialog { id: password }
    VaultItemDialog { id: editor }

    // Locked
    ColumnLayout {
        objectName: "vaultLocked"
        visible: !Vault.unlocked
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 420)
        spacing: 12
        Label {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            text: page.texts.locked
            font.pixelSize: 20
            font.bold: true
        }
        Label {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            text: page.texts.lockedLine
            color: Theme.subtle
            wrapMode: Text.Wrap
        }
        Button {
            objectName: "unlockButton"
            Layout.alignment: Qt.AlignHCenter
            text: page.texts.unlock
            highlighted: true
            enabled: !Vault.asking
            onClicked: Vault.unlock()
        }
        Label {
            objectName: "vaultAuthError"
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            visible: text !== ""
            text: Vault.authError
            color: Theme.danger
            wrapMode: Text.Wrap
        }
    }

    // Unlocked
    ColumnLayout {
        objectName: "vaultList"
        visible: Vault.unlocked
        anchors.fill: parent
        spacing: 0

        RowLayout {
            Layout.fillWidth: true
            Layout.margins: 16
            Layout.bottomMargin: 4
            Label {
                text: { Lang.code; return App.pageTitle("vault") }
                font.pixelSize: 22
                font.bold: true
            }
            Label {
                Layout.fillWidth: true
                text: page.texts.encrypted
                color: Theme.subtle
                elide: Text.ElideRight
            }
            BusyIndicator {
                running: Vault.loading || Vault.busy
                implicitWidth: 24
                implicitHeight: 24
            }
            Button {
                objectName: "vaultAdd"
                text: Lang.t("הוספה…", "Add…", "Добавить…")
                onClicked: editor.openFor(null, Vault.kind !== "" ? Vault.kind : "login")
            }
            Button {
                objectName: "vaultLock"
                text: Lang.t("נעילה", "Lock", "Заблокировать")
                onClicked: Vault.lock()
            }
        }
        RowLayout {
            Layout.fillWidth: true
            Layout.leftMargin: 16
            Layout.rightMargin: 16
            spacing: 8
            TextField {
                objectName: "vaultSearch"
                Layout.fillWidth: true
                placeholderText: page.texts.search
                text: Vault.query
                onTextEdited: Vault.query = text
            }
            ComboBox {
                objectName: "vaultKinds"
                model: [""].concat(Vault.kinds)
                displayText: { Lang.code; return currentIndex <= 0 ? page.texts.all : Vault.kindTitle(currentValue) }
                delegate: ItemDelegate {
                    required property string modelData
                    width: parent ? parent.width : 160
                    text: { Lang.code; return modelData === "" ? page.texts.all : Vault.kindTitle(modelData) }
                }
                onActivated: Vault.kind = currentValue
            }
        }
        Label {
            Layout.fillWidth: true
            Layout.margins: 16
            Layout.bottomMargin: 0
            visible: text !== ""
            text: Vault.failure !== "" ? Vault.failure : Vault.actionError
            color: Theme.danger
            wrapMode: Text.Wrap
        }
        Label {
            id: copiedNote
            objectName: "vaultCopied"
            Layout.fillWidth: true
            Layout.margins: 16
            Layout.bottomMargin: 0
            visible: false
            text: page.texts.copied
            color: Theme.accent
            Timer { id: copiedTimer; interval: 4000; onTriggered: copiedNote.visible = false }
            Connections {
                target: Vault
                function onCopied() { copiedNote.visible = true; copiedTimer.restart() }
            }
        }

        // Nothing at all, or nothing the search lets through.
        ColumnLayout {
            Layout.fillWidth: true
            Layout.margins: 32
            visible: !Vault.loading && list.count === 0
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                text: Vault.total === 0 ? page.texts.empty : page.texts.noMatch
                font.bold: true
            }
            Label {
                Layout.fillWidth: true
                horizontalAlignment: Text.AlignHCenter
                visible: Vault.total === 0
                text: page.texts.emptyLine
                color: Theme.subtle
                wrapMode: Text.Wrap
            }
        }

        ListView {
            id: list
            objectName: "vaultItems"
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.topMargin: 8
            clip: true
            model: Vault.items
            delegate: ItemDelegate {
                id: row
                required property var modelData
                readonly property bool shown: Vault.revealedId === modelData.id
                width: ListView.view.width
                padding: 12
                background: Rectangle {
                    color: row.hovered ? Theme.raised : Theme.surface
                    Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Theme.border }
                }
                onClicked: editor.openFor(modelData, modelData.kind)
                contentItem: ColumnLayout {
                    spacing: 6
                    RowLayout {
                        spacing: 10
                        ColumnLayout {
                            Layout.fillWidth: true
                            spacing: 2
                            RowLayout {
                                Label {
                                    text: row.modelData.title || row.modelData.id
                                    font.pixelSize: 15
                                    elide: Text.ElideRight
                                    Layout.maximumWidth: row.width * 0.5
                                }
                                Label {
                                    visible: row.modelData.primary === true
                                    text: "★ " + page.texts.primary
                                    color: Theme.accent
                                    font.pixelSize: 12
                                }
                            }
                            Label {
                                Layout.fillWidth: true
                                text: {
                                    const m = row.modelData
                                    const parts = [m.kindTitle]
                                    for (const key of ["username", "site", "url", "service", "client", "cardholder"])
                                        if (m[key]) parts.push(m[key])
                                    if (m.last4) parts.push("•••• " + m.last4)
                                    return parts.join(" · ")
                                }
                                color: Theme.subtle
                                font.pixelSize: 12
                                elide: Text.ElideRight
                            }
                        }
                        Button {
                            flat: true
                            objectName: "reveal_" + row.modelData.id
                            text: row.shown ? Lang.t("הסתרה", "Hide", "Скрыть") : Lang.t("הצגה", "Reveal", "Показать")
                            enabled: !Vault.busy || row.shown
                            onClicked: row.shown ? Vault.hide() : Vault.reveal(row.modelData.id)
                        }
                        Button {
                            flat: true
                            visible: row.modelData.kind !== "signature"
                            text: Lang.t("העתקה", "Copy", "Копировать")
                            enabled: !Vault.busy
                            onClicked: Vault.copy(row.modelData.id)
                        }
                    }
                    TextArea {
                        objectName: "revealedText"
                        Layout.fillWidth: true
                        visible: row.shown && !Vault.revealedIsImage
                        readOnly: true
                        selectByMouse: true
                        wrapMode: TextEdit.WrapAnywhere
                        font.family: "DejaVu Sans Mono"
                        text: row.shown && !Vault.revealedIsImage ? Vault.revealedValue : ""
                        background: Rectangle { color: Theme.raised; radius: 4 }
                    }
                    Image {
                        visible: row.shown && Vault.revealedIsImage
                        Layout.preferredWidth: Math.min(row.width - 24, 480)
                        Layout.preferredHeight: Layout.preferredWidth / 3
                        fillMode: Image.PreserveAspectFit
                        // Never kept in the image cache.
                        cache: false
                        source: row.shown && Vault.revealedIsImage ? Vault.revealedValue : ""
                    }
                }
            }
        }
    }

    // The prompt comes up whenever the vault asks for the password.
    Connections {
        target: Vault
        function onAskingChanged() {
            if (Vault.asking)
                password.open()
            else
                password.close()
        }
    }
}

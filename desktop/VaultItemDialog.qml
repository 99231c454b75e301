import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// A new vault item or an edit of one: the kind's fields, a generated password, the default
// of its kind, and deleting. Secrets left empty in an edit stay as they were.
Dialog {
    id: dialog
    objectName: "vaultItemDialog"
    anchors.centerIn: Overlay.overlay
    width: Math.min(Overlay.overlay ? Overlay.overlay.width - 40 : 520, 520)
    modal: true
    property var item: null          // the item edited; null for a new one
    property string kind: "login"
    readonly property bool editing: item !== null
    readonly property var fields: { Lang.code; return Vault.fieldsOf(kind) }
    property var values: ({})
    readonly property var texts: { Lang.code; return Vault.texts() }

    title: editing ? Lang.t("עריכה", "Edit", "Изменить") : Lang.t("פריט חדש", "New item", "Новый элемент")

    function openFor(existing, kindName) {
        item = existing
        kind = kindName
        const start = {}
        if (existing)
            for (const key of ["title", "username", "url", "site", "service", "client", "location", "cardholder"])
                if (existing[key]) start[key] = existing[key]
        values = start
        primary.checked = existing ? existing.primary === true : false
        open()
    }
    function setValue(key, value) {
        const next = Object.assign({}, values)
        next[key] = value
        values = next
    }

    ScrollView {
        anchors.fill: parent
        implicitHeight: Math.min(form.implicitHeight, 460)
        contentWidth: availableWidth
        ColumnLayout {
            id: form
            width: parent.width
            spacing: 8
            LayoutMirroring.enabled: Lang.rtl
            LayoutMirroring.childrenInherit: true
            ComboBox {
                objectName: "vaultItemKind"
                Layout.fillWidth: true
                visible: !dialog.editing
                model: Vault.kinds
                currentIndex: Vault.kinds.indexOf(dialog.kind)
                displayText: { Lang.code; return Vault.kindTitle(dialog.kind) }
                delegate: ItemDelegate {
                    required property string modelData
                    width: parent ? parent.width : 200
                    text: { Lang.code; return Vault.kindTitle(modelData) }
                }
                onActivated: dialog.kind = currentValue
            }
            Repeater {
                model: dialog.fields
                delegate: ColumnLayout {
                    id: entry
                    required property var modelData
                    Layout.fillWidth: true
                    spacing: 2
                    Label {
                        text: entry.modelData.label
                        font.bold: true
                    }
                    // Only the input the field needs is made.
                    Loader {
                        Layout.fillWidth: true
                        sourceComponent: entry.modelData.input === "text" ? textInput
                                       : entry.modelData.input === "signature" ? padInput : lineInput
                    }
                    Component {
                        id: lineInput
                        RowLayout {
                            TextField {
                                objectName: "field_" + entry.modelData.key
                                Layout.fillWidth: true
                                echoMode: entry.modelData.input === "secret" && !showSecret.checked ? TextInput.Password : TextInput.Normal
                                placeholderText: dialog.editing && entry.modelData.input === "secret"
                                                 ? Lang.t("ללא שינוי כשנשאר ריק", "Unchanged when left empty", "Без изменений, если оставить пустым") : ""
                                text: dialog.values[entry.modelData.key] || ""
                                onTextEdited: dialog.setValue(entry.modelData.key, text)
                            }
                            ToolButton {
                                id: showSecret
                                visible: entry.modelData.input === "secret"
                                checkable: true
                                text: checked ? "◉" : "◎"
                                ToolTip.visible: hovered
                                ToolTip.text: Lang.t("הצגה", "Show", "Показать")
                            }
                            Button {
                                visible: entry.modelData.key === "password"
                                text: Lang.t("יצירה", "Generate", "Создать")
                                onClicked: {
                                    dialog.setValue(entry.modelData.key, Vault.generate())
                                    showSecret.checked = true
                                }
                            }
                        }
                    }
                    Component {
                        id: textInput
                        TextArea {
                            implicitHeight: 90
                            wrapMode: TextEdit.Wrap
                            placeholderText: dialog.editing ? Lang.t("ללא שינוי כשנשאר ריק", "Unchanged when left empty", "Без изменений, если оставить пустым") : ""
                            text: dialog.values[entry.modelData.key] || ""
                            onTextChanged: if (text !== (dialog.values[entry.modelData.key] || "")) dialog.setValue(entry.modelData.key, text)
                        }
                    }
                    Component {
                        id: padInput
                        SignaturePad {
                            signHere: dialog.texts.signHere
                            redrawText: dialog.texts.redraw
                            clearText: dialog.texts.clear
                            onDrawn: text => dialog.setValue(entry.modelData.key, text)
                        }
                    }
                }
            }
            CheckBox {
                id: primary
                objectName: "vaultPrimary"
                text: dialog.texts.makePrimary
            }
            Label {
                Layout.fillWidth: true
                text: dialog.texts.primaryLine
                color: Theme.subtle
                font.pixelSize: 12
                wrapMode: Text.Wrap
            }
            Label {
                Layout.fillWidth: true
                visible: text !== ""
                text: Vault.actionError
                color: Theme.danger
                wrapMode: Text.Wrap
            }
        }
    }

    footer: DialogButtonBox {
        Button {
            objectName: "vaultDelete"
            visible: dialog.editing
            text: Lang.t("מחיקה", "Delete", "Удалить")
            palette.buttonText: Theme.danger
            enabled: !Vault.busy
            DialogButtonBox.buttonRole: DialogButtonBox.DestructiveRole
            onClicked: confirmDelete.open()
        }
        Button {
            text: Lang.t("ביטול", "Cancel", "Отмена")
            DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
        }
        Button {
            objectName: "vaultSave"
            text: Lang.t("שמירה", "Save", "Сохранить")
            highlighted: true
            enabled: !Vault.busy
            // The dialog stays open until the server has the item.
            onClicked: Vault.save(dialog.editing ? dialog.item.id : "", dialog.kind, dialog.values, primary.checked)
        }
    }
    onClosed: values = ({})

    Dialog {
        id: confirmDelete
        anchors.centerIn: Overlay.overlay
        modal: true
        title: Lang.t("למחוק את הפריט?", "Delete this item?", "Удалить этот элемент?")
        standardButtons: Dialog.Cancel | Dialog.Ok
        onAccepted: Vault.remove(dialog.item.id)
    }

    Connections {
        target: Vault
        function onSaved() { dialog.close() }
        // Locked (the window was left): the form goes with the list.
        function onUnlockedChanged() { if (!Vault.unlocked) dialog.close() }
    }
}

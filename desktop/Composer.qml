import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Dialogs
import Halvenmark.Desktop

// Where the user writes: Enter sends, Shift+Enter starts a new line; the draft is the store's
// (saved half a second after the last key, so it survives a restart); files from the picker,
// a drop or the clipboard.
Rectangle {
    id: composer
    property ChatController chat
    readonly property ChatStore store: chat ? chat.store : null
    property alias area: area
    implicitHeight: column.implicitHeight + 16
    color: Theme.surface

    function send() {
        if (!chat)
            return
        // The store takes the text from here; it empties the composer once the turn is on disk.
        store.composerText = area.text
        chat.send(area.text)
    }

    function follow() {
        if (store && area.text !== store.composerText) {
            area.text = store.composerText
            area.cursorPosition = area.length
        }
    }

    Connections {
        target: composer.store
        function onComposerChanged() { composer.follow() }
        function onFocusComposer() { area.forceActiveFocus() }
    }
    onStoreChanged: follow()

    Rectangle {
        anchors.top: parent.top
        width: parent.width
        height: 1
        color: Theme.border
    }

    ColumnLayout {
        id: column
        x: 12
        y: 8
        width: parent.width - 24
        spacing: 6

        // The message being answered.
        RowLayout {
            objectName: "replyBar"
            Layout.fillWidth: true
            visible: composer.store !== null && composer.store.replyTo.seq !== undefined
            Rectangle { width: 3; Layout.fillHeight: true; color: Theme.accent }
            Label {
                Layout.fillWidth: true
                text: composer.store && composer.store.replyTo.text !== undefined
                      ? Lang.t("תשובה ל: ", "Replying to: ", "Ответ на: ") + composer.store.replyTo.text : ""
                elide: Text.ElideRight
                maximumLineCount: 1
                color: Theme.subtle
            }
            ToolButton {
                text: "✕"
                onClicked: composer.chat.clearReply()
                ToolTip.visible: hovered
                ToolTip.text: Lang.t("ביטול התשובה", "Cancel the reply", "Отменить ответ")
            }
        }

        // Attached files, images with a preview.
        Flow {
            Layout.fillWidth: true
            spacing: 6
            visible: composer.store !== null && composer.store.attachments.length > 0
            Repeater {
                model: composer.store ? composer.store.attachments : []
                delegate: Rectangle {
                    id: chip
                    required property var modelData
                    readonly property url preview: composer.chat.preview(modelData.id)
                    width: chipRow.implicitWidth + 12
                    height: 44
                    radius: 8
                    color: Theme.raised
                    border.color: modelData.failed ? Theme.danger : Theme.border
                    RowLayout {
                        id: chipRow
                        x: 6
                        anchors.verticalCenter: parent.verticalCenter
                        Image {
                            visible: chip.preview.toString() !== ""
                            source: chip.preview
                            sourceSize.height: 36
                            Layout.preferredHeight: 36
                            Layout.preferredWidth: 36
                            fillMode: Image.PreserveAspectCrop
                            asynchronous: true
                        }
                        Label { text: chip.modelData.name; elide: Text.ElideMiddle; Layout.maximumWidth: 180 }
                        ToolButton {
                            text: "✕"
                            onClicked: composer.chat.removeAttachment(chip.modelData.id)
                        }
                    }
                }
            }
        }

        // Videos being shrunk, and what a send waits for.
        PreparingFiles {
            objectName: "preparingFiles"
            Layout.fillWidth: true
            files: composer.chat ? composer.chat.files : null
        }
        Label {
            objectName: "filesNote"
            Layout.fillWidth: true
            visible: text !== ""
            color: composer.chat && composer.chat.files.blocked ? Theme.danger : Theme.subtle
            wrapMode: Text.Wrap
            text: !composer.chat ? ""
                  : composer.chat.files.blocked
                    ? Lang.t("וידאו שלא הוכן עדיין מצורף: הסירו אותו כדי לשלוח.",
                             "A video that could not be prepared is attached: remove it to send.",
                             "Прикреплено видео, которое не удалось подготовить: удалите его, чтобы отправить.")
                    : composer.chat.files.sendWaiting
                      ? Lang.t("ההודעה תישלח כשהווידאו יהיה מוכן.", "The message goes as soon as the video is ready.",
                               "Сообщение уйдёт, как только видео будет готово.")
                      : ""
        }

        Label {
            objectName: "sendError"
            Layout.fillWidth: true
            // A refused turn says it on its own card.
            visible: text !== "" && !(composer.chat && composer.chat.pending.some(t => t.state === "failed"))
            text: composer.chat && composer.chat.recordError !== "" ? composer.chat.recordError
                  : composer.store ? composer.store.sendError : ""
            color: Theme.danger
            wrapMode: Text.Wrap
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 6
            ToolButton {
                objectName: "attachButton"
                text: "+"
                font.pixelSize: 22
                onClicked: picker.open()
                ToolTip.visible: hovered
                ToolTip.text: Lang.t("צירוף קבצים", "Attach files", "Прикрепить файлы")
            }
            ToolButton {
                objectName: "recordButton"
                readonly property bool on: composer.chat !== null && composer.chat.recording
                // Drawn from the text font: its emoji are missing on a stock Debian desktop.
                text: on ? "■" : "●"
                palette.buttonText: Theme.danger
                checkable: true
                checked: on
                onClicked: on ? composer.chat.finishRecording() : composer.chat.startRecording()
                ToolTip.visible: hovered
                ToolTip.text: on ? Lang.t("סיום ושליחה", "Stop and send", "Остановить и отправить")
                                 : Lang.t("הקלטת הודעה קולית", "Record a voice message", "Записать голосовое сообщение")
            }
            // While recording: the loudness, and a way out that keeps nothing.
            Rectangle {
                objectName: "recordLevel"
                visible: composer.chat !== null && composer.chat.recording
                Layout.fillWidth: true
                height: 8
                radius: 4
                color: Theme.raised
                border.color: Theme.border
                Rectangle {
                    height: parent.height
                    radius: 4
                    width: parent.width * Math.min(1, composer.chat ? composer.chat.recordLevel * 3 : 0)
                    color: Theme.danger
                }
            }
            ToolButton {
                objectName: "recordToText"
                visible: composer.chat !== null && composer.chat.recording
                text: "Aa"
                onClicked: composer.chat.finishRecordingAsText()
                ToolTip.visible: hovered
                ToolTip.text: Lang.t("סיום והוספת המילים לתיבה, בלי לשלוח",
                                     "Stop and put the words in the message box, without sending",
                                     "Остановить и вставить слова в поле, не отправляя")
            }
            ToolButton {
                objectName: "recordCancel"
                visible: composer.chat !== null && composer.chat.recording
                text: "✕"
                onClicked: composer.chat.cancelRecording()
                ToolTip.visible: hovered
                ToolTip.text: Lang.t("ביטול ההקלטה", "Discard the recording", "Отменить запись")
            }
            ScrollView {
                visible: !(composer.chat !== null && composer.chat.recording)
                Layout.fillWidth: true
                Layout.preferredHeight: Math.min(area.implicitHeight, 160)
                TextArea {
                    id: area
                    objectName: "composerArea"
                    wrapMode: TextEdit.Wrap
                    placeholderText: Lang.t("הודעה לסוכן…", "Message the agent…", "Сообщение агенту…")
                    background: Rectangle { radius: 8; color: Theme.raised; border.color: area.activeFocus ? Theme.accent : Theme.border }
                    onTextChanged: if (composer.store && composer.store.composerText !== text) composer.store.composerText = text
                    Keys.onPressed: event => {
                        if ((event.key === Qt.Key_Return || event.key === Qt.Key_Enter)
                                && !(event.modifiers & Qt.ShiftModifier)) {
                            event.accepted = true
                            composer.send()
                        } else if (event.matches(StandardKey.Paste) && composer.chat && composer.chat.paste()) {
                            event.accepted = true
                        }
                    }
                }
            }
            Button {
                objectName: "sendButton"
                highlighted: true
                text: Lang.t("שליחה", "Send", "Отправить")
                enabled: area.text.trim() !== "" || (composer.store && composer.store.attachments.length > 0)
                         || (composer.chat !== null && composer.chat.files.busy)
                onClicked: composer.send()
            }
        }
    }

    FileDialog {
        id: picker
        title: Lang.t("צירוף קבצים", "Attach files", "Прикрепить файлы")
        fileMode: FileDialog.OpenFiles
        onAccepted: composer.chat.attachUrls(selectedFiles)
    }
}

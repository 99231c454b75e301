import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// One row of the chat: a message bubble (the user's on the trailing side) or the live card
// of the agent's work with its steps.
Item {
    id: row
    required property int index
    required property string rowId
    required property bool isLane
    required property string role
    required property string text
    required property string html
    required property string time
    required property var seq
    required property string label
    required property string toolsText
    required property bool finished
    required property string outcome
    required property var taskNumber
    required property string replyText
    required property var voices
    // The conversation the row belongs to.
    property ChatController chat

    signal replyRequested(var seq)
    signal copyRequested(string text)
    signal stopRequested(int number)
    signal voiceToggled(var source)

    // The message's voices; an answer without one gets a player while "Listen" plays it.
    readonly property var listening: !isLane && seq > 0 && role === "assistant" && voices.length === 0
                                     && App.voice.key === "seq:" + seq && App.voice.chat === chat
                                     ? [{ key: "seq:" + seq, speech: true, seq: seq, fileID: "", name: "" }] : []

    readonly property bool mine: role === "user"
    readonly property real maxText: Math.max(120, Math.min(width * 0.78, 760) - 24)
    readonly property size measured: TextSizeMemo.measure(html, maxText, body.font.family, body.font.pixelSize)

    width: ListView.view ? ListView.view.width : 400
    height: bubble.height + 10

    Rectangle {
        id: bubble
        objectName: "bubble"
        anchors.top: parent.top
        anchors.topMargin: 5
        anchors.right: row.mine ? parent.right : undefined
        anchors.left: row.mine ? undefined : parent.left
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        width: Math.max(content.implicitWidth, row.isLane ? row.maxText : 60) + 24
        height: content.implicitHeight + 20
        radius: 12
        color: row.isLane ? Theme.raised : row.mine ? Theme.userBubble : Theme.surface
        border.color: row.isLane ? Theme.accent : Theme.border
        border.width: row.isLane ? 1 : (row.mine ? 0 : 1)

        ColumnLayout {
            id: content
            x: 12
            y: 10
            width: bubble.width - 24
            spacing: 4

            // The message this one answers, quoted.
            RowLayout {
                visible: row.replyText !== ""
                Rectangle { width: 3; Layout.fillHeight: true; color: Theme.accent }
                Label {
                    Layout.maximumWidth: row.maxText - 12
                    text: row.replyText
                    elide: Text.ElideRight
                    maximumLineCount: 2
                    wrapMode: Text.Wrap
                    textFormat: Text.PlainText
                    color: Theme.subtle
                    font.pixelSize: 12
                }
            }
            Label {
                visible: row.isLane
                text: row.label
                font.bold: true
                color: Theme.accent
                Layout.fillWidth: true
                elide: Text.ElideRight
            }
            DirectedText {
                id: body
                objectName: "messageText"
                html: row.html
                plain: row.text
                Layout.preferredWidth: Math.ceil(row.measured.width) + 1
                Layout.fillWidth: row.isLane
                Layout.preferredHeight: row.measured.height
                font.family: Qt.application.font.family
                visible: row.text !== ""
            }
            Repeater {
                model: row.isLane ? [] : row.voices.concat(row.listening)
                delegate: VoiceBar {
                    required property var modelData
                    source: modelData
                    chat: row.chat
                    Layout.fillWidth: true
                    Layout.minimumWidth: 280
                    onToggled: source => row.voiceToggled(source)
                }
            }
            Label {
                visible: row.isLane && row.toolsText !== ""
                text: row.toolsText
                color: Theme.subtle
                font.pixelSize: 12
                wrapMode: Text.Wrap
                Layout.fillWidth: true
            }
            RowLayout {
                Layout.fillWidth: true
                Label {
                    text: {
                        Lang.code
                        if (!row.isLane)
                            return row.time
                        return row.finished ? App.word(row.outcome || "done") : Lang.t("עובד…", "Working…", "Работает…")
                    }
                    font.pixelSize: 11
                    color: Theme.subtle
                }
                Item { Layout.fillWidth: true }
                Button {
                    objectName: "stopButton"
                    visible: row.isLane && !row.finished && row.taskNumber > 0
                    flat: true
                    text: Lang.t("עצירה", "Stop", "Остановить")
                    onClicked: row.stopRequested(row.taskNumber)
                }
                Label {
                    visible: row.taskNumber !== undefined && row.taskNumber !== null && row.taskNumber > 0
                    text: "#" + row.taskNumber
                    font.pixelSize: 11
                    color: Theme.subtle
                }
            }
        }

        TapHandler {
            acceptedButtons: Qt.RightButton
            onTapped: menu.popup()
        }
        Menu {
            id: menu
            MenuItem {
                text: Lang.t("העתקת ההודעה", "Copy message", "Копировать сообщение")
                onTriggered: row.copyRequested(row.text)
            }
            MenuItem {
                enabled: !row.isLane && row.seq > 0
                text: Lang.t("תשובה", "Reply", "Ответить")
                onTriggered: row.replyRequested(row.seq)
            }
            MenuItem {
                objectName: "listenItem"
                visible: !row.isLane && row.seq > 0 && row.role === "assistant" && row.voices.length === 0
                height: visible ? implicitHeight : 0
                text: Lang.t("האזנה", "Listen", "Прослушать")
                onTriggered: row.voiceToggled({ key: "seq:" + row.seq, speech: true, seq: row.seq, fileID: "", name: "" })
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// Turns still in the outbox, under the last row: what they wait for, their uploads, and
// Retry / take back when the server refused them.
Column {
    id: pending
    property var turns: []
    signal retry(string id)
    signal discard(string id)
    spacing: 6
    bottomPadding: turns.length > 0 ? 8 : 0

    function stateText(turn) {
        switch (turn.state) {
        case "failed": return turn.error
        case "working": return Lang.t("הסוכן עובד על זה…", "The agent is on it…", "Агент работает над этим…")
        case "waiting": return Lang.t("ממתין לחיבור", "Waiting for a connection", "Ждёт подключения")
        default: return Lang.t("נשלח…", "Sending…", "Отправляется…")
        }
    }

    Repeater {
        model: pending.turns
        delegate: Rectangle {
            id: card
            required property var modelData
            objectName: "pending_" + modelData.state
            anchors.right: parent.right
            anchors.rightMargin: 16
            width: Math.min(pending.width * 0.78, 560)
            height: box.implicitHeight + 16
            radius: 12
            color: Theme.userBubble
            opacity: modelData.state === "failed" ? 1 : 0.8
            border.color: modelData.state === "failed" ? Theme.danger : "transparent"

            ColumnLayout {
                id: box
                x: 12
                y: 8
                width: card.width - 24
                spacing: 4
                Label {
                    Layout.fillWidth: true
                    text: card.modelData.text
                    visible: text !== ""
                    wrapMode: Text.Wrap
                }
                Label {
                    Layout.fillWidth: true
                    visible: card.modelData.files.length > 0
                    text: card.modelData.files.join(", ")
                    color: Theme.subtle
                    elide: Text.ElideMiddle
                }
                Label {
                    objectName: "pendingState"
                    Layout.fillWidth: true
                    text: { Lang.code; return pending.stateText(card.modelData) }
                    color: card.modelData.state === "failed" ? Theme.danger : Theme.subtle
                    font.pixelSize: 12
                    wrapMode: Text.Wrap
                }
                Label {
                    Layout.fillWidth: true
                    visible: card.modelData.progress !== ""
                    text: card.modelData.progress + (card.modelData.stalled ? " · " + Lang.t("נתקע", "stalled", "застряло") : "")
                    color: Theme.subtle
                    font.pixelSize: 12
                }
                RowLayout {
                    visible: card.modelData.state === "failed"
                    Button {
                        objectName: "retryButton"
                        text: Lang.t("ניסיון חוזר", "Retry", "Повторить")
                        onClicked: pending.retry(card.modelData.id)
                    }
                    Button {
                        objectName: "discardButton"
                        flat: true
                        text: Lang.t("החזרה לעריכה", "Back to editing", "Вернуть в редактор")
                        onClicked: pending.discard(card.modelData.id)
                    }
                }
            }
        }
    }
}

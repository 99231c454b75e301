import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// A player for one voice in a message: play/pause, the position across all its parts, the
// time and the speed. Only the voice that plays shows live progress. With focus, Space plays
// or pauses and the arrow keys move 5 s the way the bar points (mirrored right to left).
FocusScope {
    id: bar
    // A VoiceSource map: key, speech, seq, fileID, name.
    required property var source
    // The conversation of the message: the same seq in another one is another voice.
    property ChatController chat
    signal toggled(var source)

    readonly property bool active: App.voice.key === source.key && (!source.speech || App.voice.chat === chat)
    readonly property int state: active ? App.voice.state : VoiceController.Idle
    readonly property bool running: state === VoiceController.Playing
    readonly property bool flip: LayoutMirroring.enabled

    objectName: "voiceBar"
    activeFocusOnTab: true
    implicitWidth: 300
    implicitHeight: column.implicitHeight
    Accessible.role: Accessible.Grouping
    Accessible.name: Lang.t("הודעה קולית", "Voice message", "Голосовое сообщение")

    Keys.onPressed: event => {
        if (event.key === Qt.Key_Space) {
            bar.toggled(bar.source)
            event.accepted = true
        } else if ((event.key === Qt.Key_Left || event.key === Qt.Key_Right) && bar.active) {
            const forward = (event.key === Qt.Key_Right) !== bar.flip
            App.voice.skip(forward ? 5 : -5)
            event.accepted = true
        }
    }

    Rectangle {
        anchors.fill: parent
        anchors.margins: -3
        radius: 8
        color: "transparent"
        border.color: Theme.accent
        visible: bar.activeFocus
    }

    ColumnLayout {
        id: column
        width: parent.width
        spacing: 0
        RowLayout {
            Layout.fillWidth: true
            spacing: 4
            ToolButton {
                objectName: "voicePlay"
                focusPolicy: Qt.NoFocus
                implicitWidth: 36
                // Drawn, not a glyph: the pause sign is missing from common fonts.
                contentItem: Item {
                    Label {
                        anchors.centerIn: parent
                        visible: !bar.running
                        text: "▶"
                        font.pixelSize: 16
                        color: Theme.accent
                    }
                    Row {
                        anchors.centerIn: parent
                        visible: bar.running
                        spacing: 4
                        Rectangle { width: 4; height: 14; radius: 1; color: Theme.accent }
                        Rectangle { width: 4; height: 14; radius: 1; color: Theme.accent }
                    }
                }
                onClicked: { bar.forceActiveFocus(); bar.toggled(bar.source) }
                Accessible.name: bar.running ? Lang.t("השהיה", "Pause", "Пауза") : Lang.t("השמעה", "Play", "Воспроизвести")
                ToolTip.visible: hovered
                ToolTip.text: Accessible.name
            }
            Slider {
                id: seekBar
                objectName: "voiceSeek"
                focusPolicy: Qt.NoFocus
                Layout.fillWidth: true
                property real dragged: -1
                from: 0
                to: bar.active && App.voice.total > 0 ? App.voice.total : 1
                value: dragged >= 0 ? dragged : bar.active && App.voice.total > 0 ? Math.min(App.voice.elapsed, App.voice.total) : 0
                enabled: bar.active && App.voice.total > 0
                        && (bar.state === VoiceController.Playing || bar.state === VoiceController.Paused)
                onMoved: dragged = value
                onPressedChanged: {
                    if (!pressed && dragged >= 0) {
                        App.voice.seek(dragged)
                        dragged = -1
                    }
                }
            }
            Label {
                objectName: "voiceTime"
                text: bar.active ? App.voice.timeText : "0:00"
                font.pixelSize: 11
                color: Theme.subtle
                // Digits read left to right in either direction.
                LayoutMirroring.enabled: false
            }
            ToolButton {
                objectName: "voiceRate"
                focusPolicy: Qt.NoFocus
                text: App.voice.rateText
                font.pixelSize: 12
                onClicked: App.voice.cycleRate()
                Accessible.name: Lang.t("מהירות ", "Speed ", "Скорость ") + text
                ToolTip.visible: hovered
                ToolTip.text: Lang.t("מהירות ההשמעה", "Playback speed", "Скорость воспроизведения")
            }
        }
        Label {
            objectName: "voiceStatus"
            Layout.fillWidth: true
            visible: text !== ""
            font.pixelSize: 11
            wrapMode: Text.Wrap
            color: bar.state === VoiceController.Failed ? Theme.danger : Theme.subtle
            text: bar.state === VoiceController.Preparing
                  ? Lang.t("מכין את הקול…", "Preparing the voice…", "Готовим озвучку…")
                  : bar.state === VoiceController.Failed
                    ? Lang.t("לא ניתן להשמיע את ההודעה. נסו שוב.", "This voice could not be played. Try again.",
                             "Не удалось воспроизвести. Попробуйте ещё раз.")
                    : ""
        }
    }
}

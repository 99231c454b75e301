import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// What the agent does around the call: background steps, quick web answers with their
// sources, and the call's log (folded until asked for).
ScrollView {
    id: activity
    required property CallController controller
    readonly property Call call: controller.call
    property bool traceOpen: false
    contentWidth: availableWidth
    clip: true

    ColumnLayout {
        width: activity.availableWidth
        spacing: 6

        Label {
            Layout.topMargin: 6
            text: Lang.t("משימות", "Steps", "Шаги")
            font.bold: true
        }
        Label {
            visible: activity.call.steps.length === 0
            text: Lang.t("אין עבודת רקע עדיין.", "No background work yet.", "Фоновой работы пока нет.")
            color: Theme.subtle
        }
        Repeater {
            objectName: "steps"
            model: activity.call.steps
            delegate: RowLayout {
                required property var modelData
                Layout.fillWidth: true
                spacing: 6
                Rectangle {
                    implicitWidth: 8
                    implicitHeight: 8
                    radius: 4
                    color: modelData.state === "failed" ? Theme.danger
                         : modelData.state === "done" ? Theme.accent : Theme.subtle
                }
                Label {
                    Layout.fillWidth: true
                    text: modelData.title + (modelData.detail ? " — " + modelData.detail : "")
                    textFormat: Text.PlainText
                    // Next to its dot in either direction, whatever the title's own language.
                    horizontalAlignment: Text.AlignLeft
                    elide: Text.ElideRight
                }
                Label {
                    text: { Lang.code; return App.word(modelData.state) }
                    color: Theme.subtle
                }
            }
        }

        Label {
            Layout.topMargin: 8
            text: Lang.t("תשובות מהירות", "Fast answers", "Быстрые ответы")
                  + (activity.call.searchingWeb ? " · " + Lang.t("מחפש ברשת…", "searching the web…", "ищет в сети…") : "")
            font.bold: true
        }
        Label {
            visible: activity.call.fastAnswers.length === 0
            text: Lang.t("אין תשובות מהירות עדיין.", "No fast answers yet.", "Быстрых ответов пока нет.")
            color: Theme.subtle
        }
        Repeater {
            objectName: "fastAnswers"
            model: activity.call.fastAnswers
            delegate: Rectangle {
                required property var modelData
                Layout.fillWidth: true
                implicitHeight: fast.implicitHeight + 12
                radius: 6
                color: Theme.surface
                border.color: modelData.state === "failed" ? Theme.danger : Theme.border
                ColumnLayout {
                    id: fast
                    x: 8
                    y: 6
                    width: parent.width - 16
                    spacing: 2
                    Label {
                        Layout.fillWidth: true
                        text: modelData.query
                        textFormat: Text.PlainText
                        font.bold: true
                        wrapMode: Text.Wrap
                    }
                    Label {
                        Layout.fillWidth: true
                        visible: text !== ""
                        text: modelData.state === "failed" ? modelData.error
                            : modelData.state === "running" ? Lang.t("עובד…", "Working…", "Работает…") + " " + modelData.stage
                            : modelData.answer
                        textFormat: Text.PlainText
                        color: modelData.state === "failed" ? Theme.danger : Theme.text
                        wrapMode: Text.Wrap
                    }
                    Label {
                        visible: modelData.handedToAgent
                        text: Lang.t("הועבר לסוכן", "Handed on to the agent", "Передано агенту")
                        color: Theme.subtle
                    }
                    Repeater {
                        model: modelData.sources
                        delegate: Label {
                            required property var modelData
                            Layout.fillWidth: true
                            // Plain text: the title is the server's, the link opens outside.
                            text: "↗ " + (modelData.title || modelData.url)
                            textFormat: Text.PlainText
                            color: Theme.accent
                            elide: Text.ElideRight
                            ToolTip.visible: source.hovered
                            ToolTip.text: modelData.url
                            HoverHandler { id: source; cursorShape: Qt.PointingHandCursor }
                            TapHandler {
                                onTapped: if (/^https?:\/\//.test(modelData.url)) Qt.openUrlExternally(modelData.url)
                            }
                        }
                    }
                }
            }
        }

        ToolButton {
            objectName: "traceToggle"
            Layout.topMargin: 8
            focusPolicy: Qt.NoFocus
            text: (activity.traceOpen ? "▾ " : (Lang.rtl ? "◂ " : "▸ "))
                  + Lang.t("יומן השיחה", "Call log", "Журнал звонка") + " (" + activity.call.trace.length + ")"
            font.bold: true
            onClicked: activity.traceOpen = !activity.traceOpen
        }
        Repeater {
            objectName: "trace"
            model: activity.traceOpen ? activity.call.trace : []
            delegate: RowLayout {
                required property var modelData
                Layout.fillWidth: true
                spacing: 6
                Label {
                    text: modelData.tag
                    font.family: "monospace"
                    font.pixelSize: 11
                    color: modelData.tag === "WARN" ? Theme.danger : Theme.subtle
                    Layout.preferredWidth: 52
                }
                Label {
                    Layout.fillWidth: true
                    text: modelData.text
                    font.pixelSize: 11
                    wrapMode: Text.WrapAnywhere
                    textFormat: Text.PlainText
                }
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// A live call: its phase, the two live lines, the transcript, what the agent does meanwhile,
// the meter and the controls. Keys while the screen has focus: Space mutes or unmutes, Esc
// hangs up and closes.
FocusScope {
    id: screen
    objectName: "callScreen"
    required property CallController controller
    readonly property Call call: controller.call
    // Esc, or the close button of a call that is over.
    signal closeRequested()

    LayoutMirroring.enabled: Lang.rtl
    LayoutMirroring.childrenInherit: true
    focus: true

    Keys.onPressed: event => {
        if (event.key === Qt.Key_Space) {
            if (!event.isAutoRepeat)
                screen.controller.toggleMute()
            event.accepted = true
        } else if (event.key === Qt.Key_Escape) {
            screen.controller.hangUp()
            screen.closeRequested()
            event.accepted = true
        }
    }

    // A headset plugged in since the last call shows up.
    Component.onCompleted: controller.refreshDevices()

    Rectangle {
        anchors.fill: parent
        color: Theme.background
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 10

        RowLayout {
            Layout.fillWidth: true
            spacing: 10
            Rectangle {
                objectName: "phaseDot"
                implicitWidth: 14
                implicitHeight: 14
                radius: 7
                color: screen.controller.failed ? Theme.danger
                     : screen.controller.active ? Theme.accent : Theme.subtle
                SequentialAnimation on opacity {
                    running: screen.controller.active
                    loops: Animation.Infinite
                    onRunningChanged: if (!running) parent.opacity = 1
                    NumberAnimation { to: 0.35; duration: 700 }
                    NumberAnimation { to: 1; duration: 700 }
                }
            }
            Label {
                objectName: "phaseText"
                text: screen.controller.phaseText
                font.pixelSize: 22
                font.bold: true
            }
            Label {
                Layout.fillWidth: true
                text: screen.controller.providerText
                      + (screen.call.searchingWeb ? " · " + Lang.t("מחפש ברשת…", "searching the web…", "ищет в сети…") : "")
                color: Theme.subtle
                elide: Text.ElideRight
                horizontalAlignment: Text.AlignLeft
            }
            ToolButton {
                objectName: "closeButton"
                visible: !screen.controller.active
                focusPolicy: Qt.NoFocus
                text: "✕"
                onClicked: screen.closeRequested()
                ToolTip.visible: hovered
                ToolTip.text: Lang.t("סגירה", "Close", "Закрыть")
            }
        }

        Rectangle {
            objectName: "failureBanner"
            Layout.fillWidth: true
            visible: screen.controller.failed
            implicitHeight: failureRow.implicitHeight + 16
            radius: 6
            color: Theme.warning
            RowLayout {
                id: failureRow
                anchors.fill: parent
                anchors.margins: 8
                Label {
                    objectName: "failureText"
                    Layout.fillWidth: true
                    text: screen.call.failure
                    wrapMode: Text.Wrap
                    textFormat: Text.PlainText
                    horizontalAlignment: Text.AlignLeft
                }
                Button {
                    objectName: "retryButton"
                    focusPolicy: Qt.NoFocus
                    text: Lang.t("לנסות שוב", "Try again", "Повторить")
                    onClicked: screen.controller.start()
                }
            }
        }
        Label {
            objectName: "notice"
            Layout.fillWidth: true
            visible: text !== "" && !screen.controller.failed
            text: screen.call.notice
            color: Theme.subtle
            wrapMode: Text.Wrap
            horizontalAlignment: Text.AlignLeft
        }

        RowLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 16

            ColumnLayout {
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 3
                spacing: 8

                Repeater {
                    model: [
                        { role: "user", who: Lang.t("את/ה", "You", "Вы"), text: screen.call.heard },
                        { role: "assistant", who: Lang.t("הסוכן", "Agent", "Агент"), text: screen.call.said }
                    ]
                    delegate: Rectangle {
                        required property var modelData
                        objectName: modelData.role === "user" ? "heardLine" : "saidLine"
                        Layout.fillWidth: true
                        // Three lines, always (the screen does not jump while words stream in);
                        // a longer utterance shows its newest words.
                        Layout.preferredHeight: Math.round(who.implicitHeight + spoken.font.pixelSize * 3.6 + 22)
                        radius: 8
                        clip: true
                        color: modelData.role === "user" ? Theme.userBubble : Theme.surface
                        border.color: (modelData.role === "user" && screen.call.phase === Call.Hearing)
                                      || (modelData.role === "assistant" && screen.controller.speaking)
                                      ? Theme.accent : Theme.border
                        Label {
                            id: spoken
                            objectName: "liveText"
                            x: 10
                            width: parent.width - 20
                            y: Math.min(who.y + who.height + 4, parent.height - height - 8)
                            text: modelData.text !== "" ? modelData.text : "…"
                            font.pixelSize: 17
                            wrapMode: Text.Wrap
                            textFormat: Text.PlainText
                        }
                        Rectangle {
                            anchors.fill: who
                            anchors.margins: -2
                            color: parent.color
                        }
                        Label {
                            id: who
                            anchors.left: parent.left
                            anchors.leftMargin: 10
                            anchors.top: parent.top
                            anchors.topMargin: 6
                            text: modelData.who
                            color: Theme.subtle
                            font.pixelSize: 11
                        }
                    }
                }

                Label {
                    Layout.topMargin: 4
                    text: Lang.t("תמליל", "Transcript", "Расшифровка")
                    font.bold: true
                }
                ListView {
                    id: transcript
                    objectName: "transcript"
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    clip: true
                    spacing: 4
                    model: screen.call.lines
                    boundsBehavior: Flickable.StopAtBounds
                    ScrollBar.vertical: ScrollBar {}
                    onCountChanged: Qt.callLater(positionViewAtEnd)
                    delegate: ColumnLayout {
                        required property var modelData
                        width: transcript.width - 12
                        spacing: 0
                        visible: modelData.text !== ""
                        height: visible ? implicitHeight : 0
                        Label {
                            text: modelData.role === "user" ? Lang.t("את/ה", "You", "Вы")
                                                            : Lang.t("הסוכן", "Agent", "Агент")
                            color: modelData.role === "user" ? Theme.accent : Theme.subtle
                            font.pixelSize: 11
                            font.bold: true
                        }
                        Label {
                            Layout.fillWidth: true
                            text: modelData.text
                            wrapMode: Text.Wrap
                            textFormat: Text.PlainText
                        }
                    }
                    Label {
                        anchors.centerIn: parent
                        visible: transcript.count === 0
                        text: Lang.t("מה שייאמר בשיחה יופיע כאן.", "What is said in the call appears here.",
                                     "Здесь появится то, что сказано в звонке.")
                        color: Theme.subtle
                    }
                }
            }

            ColumnLayout {
                Layout.fillWidth: true
                Layout.fillHeight: true
                Layout.preferredWidth: 2
                spacing: 4
                TabBar {
                    id: tabs
                    objectName: "callTabs"
                    Layout.fillWidth: true
                    background: null
                    Repeater {
                        model: [Lang.t("פעילות", "Activity", "Активность"),
                                Lang.t("הגדרות", "Settings", "Настройки")]
                        delegate: TabButton {
                            required property string modelData
                            required property int index
                            objectName: index === 1 ? "settingsTab" : "activityTab"
                            text: modelData
                            focusPolicy: Qt.NoFocus
                            contentItem: Label {
                                text: parent.text
                                horizontalAlignment: Text.AlignHCenter
                                color: parent.checked ? Theme.text : Theme.subtle
                            }
                            background: Rectangle {
                                color: parent.hovered ? Theme.raised : "transparent"
                                Rectangle {
                                    anchors.bottom: parent.bottom
                                    width: parent.width
                                    height: 3
                                    color: Theme.accent
                                    visible: parent.parent.checked
                                }
                            }
                        }
                    }
                }
                StackLayout {
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    currentIndex: tabs.currentIndex
                    CallActivity { controller: screen.controller }
                    CallSettings {
                        controller: screen.controller
                        onDone: screen.forceActiveFocus()
                    }
                }
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 12
            CallMeter {
                Layout.fillWidth: true
                controller: screen.controller
            }
            Button {
                objectName: "muteButton"
                focusPolicy: Qt.NoFocus
                checkable: true
                checked: screen.call.muted
                text: screen.call.muted ? Lang.t("ביטול השתקה", "Unmute", "Включить микрофон")
                                        : Lang.t("השתקה", "Mute", "Выключить микрофон")
                onClicked: screen.controller.toggleMute()
                ToolTip.visible: hovered
                ToolTip.text: Lang.t("רווח", "Space", "Пробел")
            }
            Label { text: Lang.t("עוצמה", "Volume", "Громкость"); color: Theme.subtle }
            Slider {
                objectName: "volumeSlider"
                focusPolicy: Qt.NoFocus
                Layout.preferredWidth: 140
                from: 0
                to: 300
                stepSize: 10
                value: screen.controller.volume
                onMoved: screen.controller.volume = value
            }
            Label {
                text: screen.controller.volume + "%"
                color: Theme.subtle
                Layout.preferredWidth: 40
            }
            Button {
                objectName: "hangUpButton"
                visible: screen.controller.active
                focusPolicy: Qt.NoFocus
                text: Lang.t("ניתוק", "Hang up", "Завершить")
                palette.button: Theme.danger
                palette.buttonText: "#ffffff"
                onClicked: screen.controller.hangUp()
                ToolTip.visible: hovered
                ToolTip.text: "Esc"
            }
            Button {
                objectName: "callButton"
                visible: !screen.controller.active && !screen.controller.failed
                focusPolicy: Qt.NoFocus
                text: Lang.t("התקשרות", "Call", "Позвонить")
                palette.button: Theme.accent
                palette.buttonText: "#ffffff"
                onClicked: screen.controller.start()
            }
        }
    }
}

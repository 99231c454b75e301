import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// Videos being shrunk before they join the composer: a chip with the progress, or with the
// reason it could not be done; ✕ stops or drops it.
Flow {
    id: flow
    property ComposerFiles files
    spacing: 6
    visible: files !== null && files.preparing.length > 0

    Repeater {
        model: flow.files ? flow.files.preparing : []
        delegate: Rectangle {
            id: chip
            required property var modelData
            objectName: "preparing_" + (modelData.failed ? "failed" : "running")
            width: chipColumn.implicitWidth + 12
            height: chipColumn.implicitHeight + 8
            radius: 8
            color: Theme.raised
            border.color: modelData.failed ? Theme.danger : Theme.border
            ColumnLayout {
                id: chipColumn
                x: 6
                y: 4
                spacing: 2
                RowLayout {
                    Label {
                        text: chip.modelData.name
                        elide: Text.ElideMiddle
                        Layout.maximumWidth: 200
                    }
                    ToolButton {
                        objectName: "preparingRemove"
                        text: "✕"
                        onClicked: flow.files.remove(chip.modelData.id)
                        Accessible.name: chip.modelData.failed ? Lang.t("הסרה", "Remove", "Удалить")
                                                               : Lang.t("ביטול", "Cancel", "Отмена")
                        ToolTip.visible: hovered
                        ToolTip.text: Accessible.name
                    }
                }
                RowLayout {
                    visible: !chip.modelData.failed
                    ProgressBar {
                        Layout.preferredWidth: 160
                        value: chip.modelData.progress
                    }
                    Label {
                        objectName: "preparingPercent"
                        text: {
                            Lang.code
                            return Lang.t("מקטין ", "Shrinking ", "Сжатие ") + Math.round(chip.modelData.progress * 100) + "%"
                        }
                        font.pixelSize: 11
                        color: Theme.subtle
                    }
                }
                Label {
                    visible: chip.modelData.failed
                    text: { Lang.code; return flow.files ? flow.files.failureText(chip.modelData.failure) : "" }
                    color: Theme.danger
                    font.pixelSize: 11
                    Layout.maximumWidth: 260
                    wrapMode: Text.Wrap
                }
            }
        }
    }
}

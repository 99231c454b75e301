import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The microphone meter: the last chunk's level, the bar the gate holds speech to while the
// agent talks, and the learned echo of the agent's own voice. Mirrored with the layout.
ColumnLayout {
    id: meter
    required property CallController controller
    spacing: 2

    Item {
        id: track
        objectName: "meterTrack"
        Layout.fillWidth: true
        implicitHeight: 12
        readonly property bool mirrored: meter.LayoutMirroring.enabled
        // 0..1 along the track, from its leading edge.
        function at(position) {
            return mirrored ? width * (1 - position) : width * position
        }

        Rectangle {
            anchors.fill: parent
            radius: 3
            color: Theme.raised
            border.color: Theme.border
        }
        Rectangle {
            objectName: "meterLevel"
            readonly property real span: track.width * meter.controller.meterLevel
            x: track.mirrored ? track.width - span : 0
            width: span
            height: parent.height
            radius: 3
            color: meter.controller.call.microphoneSuppressed ? Theme.subtle : Theme.accent
            Behavior on width { NumberAnimation { duration: 80 } }
        }
        Rectangle {
            objectName: "meterThreshold"
            x: track.at(meter.controller.meterThreshold) - 1
            width: 2
            height: parent.height + 6
            y: -3
            color: Theme.text
        }
        Rectangle {
            objectName: "meterEcho"
            visible: meter.controller.meterEchoFloor >= 0
            x: track.at(Math.max(meter.controller.meterEchoFloor, 0)) - 1
            width: 2
            height: parent.height + 6
            y: -3
            color: Theme.danger
        }
    }
    Label {
        objectName: "meterText"
        Layout.fillWidth: true
        text: meter.controller.call.muted ? Lang.t("המיקרופון מושתק", "Microphone muted", "Микрофон выключен")
                                          : meter.controller.meterText
        color: Theme.subtle
        font.pixelSize: 11
        horizontalAlignment: Text.AlignLeft
    }
}

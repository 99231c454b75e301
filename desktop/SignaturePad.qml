import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// Draw a signature with the mouse. Each finished stroke hands the whole drawing over as the
// text the vault keeps (a PNG image URL).
ColumnLayout {
    id: pad
    objectName: "signaturePad"
    property string signHere
    property string redrawText
    property string clearText
    property var strokes: []
    signal drawn(string text)

    function clear() {
        strokes = []
        canvas.requestPaint()
        pad.drawn("")
    }

    Rectangle {
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.preferredHeight: 120
        color: "#ffffff"
        border.color: Theme.border
        radius: 4
        Label {
            anchors.centerIn: parent
            visible: pad.strokes.length === 0
            text: pad.signHere
            color: "#9aa1ad"
        }
        Rectangle {
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.bottom: parent.bottom
            anchors.margins: 24
            height: 1
            color: "#d9dce3"
        }
        Canvas {
            id: canvas
            anchors.fill: parent
            onPaint: {
                const ctx = getContext("2d")
                ctx.clearRect(0, 0, width, height)
                ctx.strokeStyle = "#1a237e"
                ctx.lineWidth = 3
                ctx.lineCap = "round"
                ctx.lineJoin = "round"
                for (const stroke of pad.strokes) {
                    if (stroke.length === 0)
                        continue
                    ctx.beginPath()
                    ctx.moveTo(stroke[0].x, stroke[0].y)
                    for (let i = 1; i < stroke.length; ++i)
                        ctx.lineTo(stroke[i].x, stroke[i].y)
                    if (stroke.length === 1)
                        ctx.lineTo(stroke[0].x + 0.5, stroke[0].y + 0.5)
                    ctx.stroke()
                }
            }
        }
        MouseArea {
            objectName: "signatureArea"
            anchors.fill: parent
            // Drawn in the pad's own coordinates: a signature is never mirrored.
            onPressed: mouse => {
                pad.strokes = pad.strokes.concat([[{ x: mouse.x, y: mouse.y }]])
                canvas.requestPaint()
            }
            onPositionChanged: mouse => {
                const all = pad.strokes.slice()
                all[all.length - 1] = all[all.length - 1].concat([{ x: mouse.x, y: mouse.y }])
                pad.strokes = all
                canvas.requestPaint()
            }
            onReleased: pad.drawn(Vault.signatureText(pad.strokes, width, height))
        }
    }
    RowLayout {
        Button {
            flat: true
            text: pad.redrawText
            enabled: pad.strokes.length > 0
            onClicked: pad.clear()
        }
        Button {
            flat: true
            text: pad.clearText
            enabled: pad.strokes.length > 0
            onClicked: pad.clear()
        }
    }
}

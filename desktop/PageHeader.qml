import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// A workspace page's title line, with its failure and a reload.
ColumnLayout {
    id: header
    property string title
    property string summary
    property PageFeed feed
    spacing: 4

    RowLayout {
        Layout.fillWidth: true
        Layout.margins: 16
        Layout.bottomMargin: 4
        Label {
            text: header.title
            font.pixelSize: 22
            font.bold: true
        }
        Label {
            Layout.fillWidth: true
            text: header.summary
            color: Theme.subtle
            elide: Text.ElideRight
        }
        BusyIndicator {
            running: header.feed && (header.feed.loading || header.feed.acting)
            implicitWidth: 24
            implicitHeight: 24
        }
        ToolButton {
            text: "⟳"
            onClicked: header.feed.reload()
            ToolTip.visible: hovered
            ToolTip.text: Lang.t("רענון", "Reload", "Обновить")
        }
    }
    Label {
        objectName: "pageFailure"
        Layout.fillWidth: true
        Layout.leftMargin: 16
        Layout.rightMargin: 16
        visible: text !== ""
        text: header.feed ? header.feed.failure : ""
        color: Theme.danger
        wrapMode: Text.Wrap
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// One entry of a workspace list: a title, a state word, an age, and the row's actions.
ItemDelegate {
    id: item
    property string title
    property string detail
    property string state
    property string age
    default property alias actions: actionRow.data
    width: ListView.view ? ListView.view.width : 400
    padding: 12

    background: Rectangle {
        color: item.hovered ? Theme.raised : Theme.surface
        Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Theme.border }
    }
    contentItem: RowLayout {
        spacing: 12
        ColumnLayout {
            Layout.fillWidth: true
            spacing: 2
            Label {
                Layout.fillWidth: true
                text: item.title
                font.pixelSize: 15
                elide: Text.ElideRight
            }
            Label {
                Layout.fillWidth: true
                visible: text !== ""
                text: item.detail
                color: Theme.subtle
                font.pixelSize: 12
                elide: Text.ElideRight
            }
        }
        Rectangle {
            visible: item.state !== ""
            radius: 9
            color: Theme.raised
            border.color: Theme.border
            implicitWidth: stateLabel.implicitWidth + 14
            implicitHeight: stateLabel.implicitHeight + 4
            Label {
                id: stateLabel
                anchors.centerIn: parent
                text: item.state
                font.pixelSize: 12
            }
        }
        Label {
            visible: item.age !== ""
            text: item.age
            color: Theme.subtle
            font.pixelSize: 12
        }
        RowLayout { id: actionRow }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// Any other page the profile names, shown as a tree the user opens level by level.
Item {
    id: page
    property string page
    PageFeed { id: feed; shell: App; path: page.page; every: 60 }
    JsonTreeModel { id: tree; json: feed.value }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0
        PageHeader {
            Layout.fillWidth: true
            feed: feed
            title: { Lang.code; return App.pageTitle(page.page) }
        }
        ListView {
            objectName: "jsonTree"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: tree
            delegate: ItemDelegate {
                required property int index
                required property string key
                required property string value
                required property int depth
                required property bool expandable
                required property bool expanded
                width: ListView.view.width
                leftPadding: 16 + depth * 20
                onClicked: if (expandable) tree.toggle(index)
                contentItem: RowLayout {
                    spacing: 6
                    Label {
                        text: expandable ? (expanded ? "▾" : (Lang.rtl ? "◂" : "▸")) : "•"
                        color: Theme.subtle
                        Layout.preferredWidth: 14
                    }
                    Label {
                        text: key
                        font.bold: true
                        visible: key !== ""
                    }
                    Label {
                        Layout.fillWidth: true
                        text: value
                        color: expandable ? Theme.subtle : Theme.text
                        elide: Text.ElideRight
                        textFormat: Text.PlainText
                    }
                }
            }
            ScrollBar.vertical: ScrollBar {}
        }
    }
}

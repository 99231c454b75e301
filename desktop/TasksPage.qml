import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The user's tasks: their states, a new one, done and reopened.
Item {
    id: page
    PageFeed { id: feed; shell: App; path: "tasks"; every: 30 }
    readonly property var tasks: Array.isArray(feed.value) ? feed.value : []
    readonly property int done: tasks.filter(t => t.status === "done" || t.status === "completed").length

    ColumnLayout {
        anchors.fill: parent
        spacing: 0
        PageHeader {
            Layout.fillWidth: true
            feed: feed
            title: { Lang.code; return TaskTexts.heading() }
            summary: { Lang.code; return TaskTexts.counts(page.tasks.length - page.done, page.done) }
        }
        RowLayout {
            Layout.fillWidth: true
            Layout.margins: 16
            Layout.topMargin: 4
            TextField {
                id: title
                objectName: "newTask"
                Layout.fillWidth: true
                placeholderText: { Lang.code; return TaskTexts.newTask() }
                onAccepted: add.clicked()
            }
            Button {
                id: add
                text: { Lang.code; return TaskTexts.add() }
                enabled: title.text.trim() !== "" && !feed.acting
                onClicked: {
                    feed.post("tasks/add", { title: title.text.trim() })
                    title.text = ""
                }
            }
        }
        ListView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: page.tasks
            delegate: ListRow {
                id: entry
                required property var modelData
                readonly property bool finished: modelData.status === "done" || modelData.status === "completed"
                title: modelData.title || modelData.name || modelData.id
                detail: { Lang.code; return modelData.project_id ? TaskTexts.project(modelData.project_id) : "" }
                state: { Lang.code; return App.word(modelData.status || "") }
                Button {
                    flat: true
                    text: { Lang.code; return entry.finished ? TaskTexts.reopen() : TaskTexts.markDone() }
                    onClicked: feed.post("tasks/" + entry.modelData.id + (entry.finished ? "/reopen" : "/done"), {})
                }
            }
            Label {
                anchors.centerIn: parent
                visible: parent.count === 0 && !feed.loading
                text: { Lang.code; return TaskTexts.empty() }
                color: Theme.subtle
            }
            ScrollBar.vertical: ScrollBar {}
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The user's projects; each opens its own conversation with the agent.
Item {
    id: page
    PageFeed { id: feed; shell: App; path: "projects"; every: 30 }
    readonly property var projects: Array.isArray(feed.value) ? feed.value : []

    ColumnLayout {
        anchors.fill: parent
        spacing: 0
        visible: App.projectChat === null
        PageHeader {
            Layout.fillWidth: true
            feed: feed
            title: Lang.t("פרויקטים", "Projects", "Проекты")
        }
        RowLayout {
            Layout.fillWidth: true
            Layout.margins: 16
            Layout.topMargin: 4
            TextField {
                id: name
                Layout.fillWidth: true
                placeholderText: Lang.t("פרויקט חדש…", "New project…", "Новый проект…")
                onAccepted: add.clicked()
            }
            Button {
                id: add
                text: Lang.t("יצירה", "Create", "Создать")
                enabled: name.text.trim() !== "" && !feed.acting
                onClicked: {
                    feed.post("projects/add", { name: name.text.trim() })
                    name.text = ""
                }
            }
        }
        ListView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: page.projects
            delegate: ListRow {
                id: entry
                required property var modelData
                title: modelData.name || modelData.id
                state: { Lang.code; return App.word(modelData.status || "") }
                age: { Lang.code; return App.age(modelData.updated_at || "") }
                onClicked: App.openProject(parseInt(modelData.id), entry.title)
                Button {
                    flat: true
                    text: Lang.t("שיחה", "Conversation", "Разговор")
                    enabled: parseInt(entry.modelData.id) > 0
                    onClicked: App.openProject(parseInt(entry.modelData.id), entry.title)
                }
            }
            Label {
                anchors.centerIn: parent
                visible: parent.count === 0 && !feed.loading
                text: Lang.t("אין פרויקטים עדיין", "No projects yet", "Проектов пока нет")
                color: Theme.subtle
            }
            ScrollBar.vertical: ScrollBar {}
        }
    }

    // A project's own conversation, over the list until closed.
    ColumnLayout {
        anchors.fill: parent
        spacing: 0
        visible: App.projectChat !== null
        RowLayout {
            Layout.fillWidth: true
            Layout.margins: 8
            ToolButton {
                text: Lang.rtl ? "→" : "←"
                onClicked: App.closeProject()
            }
            Label {
                Layout.fillWidth: true
                text: App.projectName
                font.bold: true
                font.pixelSize: 16
                elide: Text.ElideRight
            }
        }
        Loader {
            Layout.fillWidth: true
            Layout.fillHeight: true
            active: App.projectChat !== null
            sourceComponent: ChatPage { chat: App.projectChat }
        }
    }
}

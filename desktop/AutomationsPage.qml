import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// Scheduled work the agent runs: switched on and off, or run now.
Item {
    id: page
    PageFeed { id: feed; shell: App; path: "automations"; every: 30 }
    readonly property var items: feed.value && Array.isArray(feed.value.automations) ? feed.value.automations : []

    ColumnLayout {
        anchors.fill: parent
        spacing: 0
        PageHeader {
            Layout.fillWidth: true
            feed: feed
            title: Lang.t("אוטומציות", "Automations", "Автоматизации")
        }
        ListView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: page.items
            delegate: ListRow {
                id: entry
                required property var modelData
                title: modelData.name || modelData.id
                detail: { Lang.code
                    return (modelData.schedule ? modelData.schedule : "")
                        + (modelData.last_run_at ? " · " + App.t("הרצה אחרונה לפני ", "last run ", "последний запуск ")
                           + App.age(modelData.last_run_at) + App.t("", " ago", " назад") : "") }
                state: { Lang.code; return App.word(modelData.status || "") }
                Switch {
                    checked: entry.modelData.status === "enabled" || entry.modelData.status === "active"
                    onToggled: feed.post("automations/" + entry.modelData.id + "/toggle", {})
                }
                Button {
                    flat: true
                    text: Lang.t("הרצה עכשיו", "Run now", "Запустить")
                    onClicked: feed.post("automations/" + entry.modelData.id + "/run", {})
                }
            }
            Label {
                anchors.centerIn: parent
                visible: parent.count === 0 && !feed.loading
                text: Lang.t("אין אוטומציות", "No automations", "Автоматизаций нет")
                color: Theme.subtle
            }
            ScrollBar.vertical: ScrollBar {}
        }
    }
}

import QtQuick
import QtQml
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window
import Halvenmark.Desktop

// The signed-in window: a page bar with the user's pages, the offline banner, the page.
Item {
    id: shell
    // The chat first, then the pages the profile names, health and the vault, then the settings.
    readonly property var pages: {
        const own = ["chat", "health", "vault", "settings"]
        const named = App.session.pages.filter(p => !own.includes(p))
        return ["chat"].concat(named).concat(["health", "vault", "settings"])
    }
    property alias currentIndex: bar.currentIndex

    function componentFor(page) {
        switch (page) {
        case "chat": return chatPage
        case "settings": return settingsPage
        case "projects": return projectsPage
        case "tasks": return tasksPage
        case "automations": return automationsPage
        case "health": return healthPage
        case "vault": return vaultPage
        default: return jsonPage
        }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        ToolBar {
            Layout.fillWidth: true
            background: Rectangle { color: Theme.surface; Rectangle { anchors.bottom: parent.bottom; width: parent.width; height: 1; color: Theme.border } }
            RowLayout {
                anchors.fill: parent
                spacing: 8
                TabBar {
                    id: bar
                    objectName: "pageBar"
                    // As wide as its tabs: a wider bar spreads or scrolls them, worst of all
                    // when mirrored.
                    Layout.preferredWidth: contentWidth
                    Layout.maximumWidth: shell.width - 120
                    background: null
                    Repeater {
                        model: shell.pages
                        delegate: TabButton {
                            required property string modelData
                            objectName: "tab_" + modelData
                            text: { Lang.code; return App.pageTitle(modelData) }
                            width: implicitWidth
                            contentItem: Label {
                                text: parent.text
                                font: parent.font
                                horizontalAlignment: Text.AlignHCenter
                                verticalAlignment: Text.AlignVCenter
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
                Item { Layout.fillWidth: true }
                CallButton {}
                Label {
                    objectName: "userLabel"
                    text: App.session.label
                    color: Theme.subtle
                    elide: Text.ElideRight
                    Layout.maximumWidth: 200
                    Layout.rightMargin: 12
                    Layout.leftMargin: 12
                }
            }
        }

        Rectangle {
            objectName: "offlineBanner"
            Layout.fillWidth: true
            visible: App.gate === "offline"
            implicitHeight: offlineText.implicitHeight + 12
            color: Theme.warning
            Label {
                id: offlineText
                anchors.centerIn: parent
                width: parent.width - 24
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                text: Lang.t("אין חיבור לשרת: מוצג העותק השמור. ההודעות יישלחו כשהחיבור יחזור.",
                             "Offline: showing the saved copy. Messages go out when the connection is back.",
                             "Нет связи с сервером: показана сохранённая копия. Сообщения уйдут, когда связь вернётся.")
            }
        }

        StackLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            currentIndex: bar.currentIndex
            Repeater {
                model: shell.pages
                delegate: Loader {
                    required property string modelData
                    required property int index
                    // A page is made when first shown and kept afterwards.
                    readonly property bool wanted: index === bar.currentIndex
                    objectName: "page_" + modelData
                    active: false
                    onWantedChanged: if (wanted) active = true
                    Component.onCompleted: if (wanted) active = true
                    sourceComponent: shell.componentFor(modelData)
                    onLoaded: if (item.hasOwnProperty("page")) item.page = modelData
                }
            }
        }
    }

    Component.onCompleted: App.shellShown(Window.window)

    // Ctrl+1 to Ctrl+9 open the pages in their order on the bar.
    Instantiator {
        model: Math.min(shell.pages.length, 9)
        delegate: Shortcut {
            required property int index
            sequence: "Ctrl+" + (index + 1)
            onActivated: bar.currentIndex = index
        }
    }

    Component { id: chatPage; ChatPage {} }
    Component { id: settingsPage; SettingsPage {} }
    Component { id: projectsPage; ProjectsPage {} }
    Component { id: tasksPage; TasksPage {} }
    Component { id: automationsPage; AutomationsPage {} }
    Component { id: jsonPage; JsonPage {} }
    Component { id: healthPage; HealthPage {} }
    Component { id: vaultPage; VaultPage {} }

    // A clicked notification opens its page (a project's opens its conversation).
    function follow(route) {
        if (!route.page)
            return
        const at = pages.indexOf(route.page)
        bar.currentIndex = at >= 0 ? at : 0
        if (route.page === "projects" && at >= 0)
            App.openProject(parseInt(route.item), "#" + route.item)
    }
    Connections {
        target: Notify
        function onRouted() { shell.follow(Notify.takeRoute()) }
        // A click that came before the shell was up.
        Component.onCompleted: shell.follow(Notify.takeRoute())
    }
}

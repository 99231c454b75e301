import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The conversation: rows from the store, pending turns under the last one, the composer.
Item {
    id: page
    property ChatController chat: App.chat
    readonly property ChatStore store: chat ? chat.store : null
    property alias list: list
    property alias composer: composer
    // Follow new rows while the user is at the end.
    property bool stick: true

    function toEnd() {
        settle.left = 4
        settle.restart()
        stick = true
        if (chat)
            chat.markRead()
    }

    // Heights of rows not yet made are estimates: the end moves as they are made, so look
    // again a few frames later (a bounded number of times, never a loop of its own).
    Timer {
        id: settle
        property int left: 0
        interval: 16
        triggeredOnStart: true
        repeat: true
        onTriggered: {
            // A conversation shorter than the view stays at its top.
            if (list.contentHeight > list.height)
                list.positionViewAtEnd()
            else
                list.positionViewAtBeginning()
            if (--left <= 0 || (list.atYEnd && left < 2))
                stop()
        }
    }

    Connections {
        target: page.store
        function onTurnQueued() { Qt.callLater(page.toEnd) }
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        Rectangle {
            objectName: "chatBanner"
            Layout.fillWidth: true
            readonly property string message: page.store ? (page.store.failure || page.store.banner) : ""
            visible: message !== ""
            implicitHeight: bannerText.implicitHeight + 10
            color: Theme.warning
            Label {
                id: bannerText
                anchors.centerIn: parent
                width: parent.width - 24
                text: parent.message
                wrapMode: Text.Wrap
                horizontalAlignment: Text.AlignHCenter
            }
        }

        ListView {
            id: list
            objectName: "chatList"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            model: page.chat ? page.chat.rows : null
            reuseItems: true
            cacheBuffer: 1600
            boundsBehavior: Flickable.StopAtBounds
            topMargin: 8
            delegate: MessageDelegate {
                chat: page.chat
                onReplyRequested: seq => { page.chat.replyTo(seq); composer.area.forceActiveFocus() }
                onCopyRequested: text => page.chat.copy(text)
                onStopRequested: number => page.chat.stop(number)
                onVoiceToggled: source => App.voice.toggle(source, page.chat)
            }
            footer: PendingTurns {
                width: list.width
                turns: page.chat ? page.chat.pending : []
                onRetry: id => page.chat.retry(id)
                onDiscard: id => page.chat.discard(id)
            }
            ScrollBar.vertical: ScrollBar {}
            onCountChanged: if (page.stick) Qt.callLater(page.toEnd)
            onMovementEnded: {
                page.stick = atYEnd
                if (atYEnd && page.chat)
                    page.chat.markRead()
            }
            Component.onCompleted: Qt.callLater(page.toEnd)

            Label {
                anchors.centerIn: parent
                visible: list.count === 0 && (page.chat ? page.chat.pending.length === 0 : true)
                text: page.store && page.store.loading ? Lang.t("טוען…", "Loading…", "Загрузка…")
                      : Lang.t("כתבו לסוכן כדי להתחיל.", "Write to the agent to begin.", "Напишите агенту, чтобы начать.")
                color: Theme.subtle
            }
        }

        Composer {
            id: composer
            objectName: "composer"
            Layout.fillWidth: true
            chat: page.chat
        }
    }

    // Back to the newest message, with the count of unread replies.
    RoundButton {
        objectName: "jumpButton"
        visible: !page.stick || (page.store && page.store.unread > 0 && !list.atYEnd)
        anchors.right: parent.right
        anchors.rightMargin: 20
        y: list.y + list.height - height - 12
        text: page.store && page.store.unread > 0 ? "↓ " + page.store.unread : "↓"
        onClicked: page.toEnd()
    }

    DropArea {
        anchors.fill: parent
        onDropped: drop => {
            if (drop.hasUrls && page.chat) {
                page.chat.attachUrls(drop.urls)
                drop.accept()
            }
        }
    }

    Component.onCompleted: composer.area.forceActiveFocus()
}

import QtQuick
import QtQuick.Controls
import QtQuick.Dialogs
import QtQuick.Layouts
import Halvenmark.Desktop

// The health panel: the server's summary of the user's workouts. This computer has no
// health store of its own; a phone's health export can be linked instead.
Item {
    id: page
    readonly property var view: Health.view
    readonly property bool hasView: view && view.connected !== undefined

    function amount(value, decimals) {
        return value === undefined || value === null ? "–" : Number(value).toFixed(decimals || 0)
    }

    Component.onCompleted: Health.refresh()

    FileDialog {
        id: pick
        objectName: "healthFileDialog"
        title: Lang.t("ייצוא הבריאות מהטלפון (export.xml)", "The phone's health export (export.xml)", "Экспорт здоровья с телефона (export.xml)")
        nameFilters: [Lang.t("ייצוא בריאות (*.xml)", "Health export (*.xml)", "Экспорт здоровья (*.xml)")]
        onAccepted: Health.linkExport(selectedFile)
    }

    Dialog {
        id: confirmDisconnect
        objectName: "healthDisconnectDialog"
        anchors.centerIn: Overlay.overlay
        modal: true
        title: Lang.t("לנתק את Apple Health?", "Disconnect Apple Health?", "Отключить Apple Health?")
        ColumnLayout {
            width: 380
            LayoutMirroring.enabled: Lang.rtl
            LayoutMirroring.childrenInherit: true
            Label {
                Layout.fillWidth: true
                wrapMode: Text.Wrap
                text: Lang.t("אימונים חדשים לא יישלחו עוד. הנתונים שכבר בשרת יישארו, אלא אם תבחרו למחוק אותם.",
                             "New workouts are no longer sent. What the server has stays unless you delete it too.",
                             "Новые тренировки больше не отправляются. Данные на сервере останутся, если их не удалить.")
            }
            CheckBox {
                id: forget
                objectName: "healthForget"
                text: Lang.t("למחוק גם את הנתונים מהשרת", "Also delete the data on the server", "Удалить и данные на сервере")
            }
        }
        standardButtons: Dialog.Cancel | Dialog.Ok
        onAccepted: Health.disconnectHealth(forget.checked)
        onOpened: forget.checked = false
    }

    ScrollView {
        anchors.fill: parent
        contentWidth: availableWidth

        ColumnLayout {
            width: Math.min(page.width - 48, 760)
            x: (page.width - width) / 2
            spacing: 12

            Item { height: 8 }
            RowLayout {
                Layout.fillWidth: true
                Label {
                    text: { Lang.code; return App.pageTitle("health") }
                    font.pixelSize: 22
                    font.bold: true
                }
                Item { Layout.fillWidth: true }
                BusyIndicator {
                    running: Health.syncing
                    implicitWidth: 24
                    implicitHeight: 24
                }
                ToolButton {
                    text: "⟳"
                    enabled: !Health.syncing
                    onClicked: Health.linked ? Health.syncNow() : Health.refresh()
                    ToolTip.visible: hovered
                    ToolTip.text: Lang.t("רענון", "Reload", "Обновить")
                }
            }
            Label {
                Layout.fillWidth: true
                text: Lang.t("כל אימון שהשעון מתעד מגיע לכאן מעצמו, עם קלוריות, דופק ומרחק.",
                             "Every workout your watch records comes in here by itself, with calories, heart rate and distance.",
                             "Каждая тренировка, записанная часами, появляется здесь сама, с калориями, пульсом и расстоянием.")
                color: Theme.subtle
                wrapMode: Text.Wrap
            }

            // This computer and its link.
            Rectangle {
                Layout.fillWidth: true
                implicitHeight: link.implicitHeight + 24
                color: Theme.surface
                border.color: Theme.border
                radius: 6
                ColumnLayout {
                    id: link
                    anchors.fill: parent
                    anchors.margins: 12
                    spacing: 8
                    Label {
                        objectName: "healthUnavailable"
                        Layout.fillWidth: true
                        // It opens with "Apple Health": in Hebrew the line must still read right to left.
                        text: { Lang.code; return (Lang.rtl ? "\u200F" : "") + Health.unavailableText() }
                        wrapMode: Text.Wrap
                    }
                    Label {
                        Layout.fillWidth: true
                        color: Theme.subtle
                        wrapMode: Text.Wrap
                        text: { Lang.code; return Health.linked
                              ? (Health.exportName !== ""
                                 ? App.t("מקושר לייצוא %1. ייצוא חדש יותר שולח רק את מה שהשתנה.", "Linked to the export %1. A newer export sends only what changed.", "Подключён экспорт %1. Более новый экспорт отправит только изменения.").arg(Health.exportName)
                                 : Lang.t("מקושר, אבל קובץ הייצוא כבר לא נמצא. בחרו ייצוא חדש.", "Linked, but the export file is gone. Choose a newer export.", "Подключено, но файла экспорта больше нет. Выберите новый экспорт."))
                              : Lang.t("אפשר לקשר במקום זאת את הייצוא שהטלפון יוצר (בריאות ← ייצוא כל נתוני הבריאות, ולפרוס את ה־zip).",
                                       "Instead, you can link the export your phone makes (Health → Export All Health Data, then unzip).",
                                       "Вместо этого можно подключить экспорт с телефона (Здоровье → Экспорт всех данных, затем распаковать).") }
                    }
                    RowLayout {
                        Button {
                            objectName: "healthLink"
                            text: Health.linked ? Lang.t("ייצוא חדש יותר…", "Newer export…", "Новый экспорт…")
                                                : Lang.t("קישור ייצוא בריאות…", "Link a health export…", "Подключить экспорт…")
                            enabled: !Health.syncing
                            highlighted: !Health.linked
                            onClicked: pick.open()
                        }
                        Button {
                            objectName: "healthDisconnect"
                            visible: Health.linked
                            text: Lang.t("ניתוק…", "Disconnect…", "Отключить…")
                            enabled: !Health.syncing
                            onClicked: confirmDisconnect.open()
                        }
                    }
                    RowLayout {
                        visible: Health.syncing
                        Layout.fillWidth: true
                        ProgressBar { indeterminate: true; Layout.fillWidth: true }
                        Label {
                            text: Lang.t("מעלה…", "Uploading…", "Загрузка…")
                            color: Theme.subtle
                        }
                    }
                    Label {
                        objectName: "healthFailure"
                        Layout.fillWidth: true
                        visible: text !== ""
                        text: Health.failure
                        color: Theme.danger
                        wrapMode: Text.Wrap
                    }
                }
            }

            // The server's summary.
            Label {
                visible: page.hasView
                Layout.fillWidth: true
                text: {
                    Lang.code
                    if (!page.hasView) return ""
                    const parts = [page.view.connected
                                   ? App.t("מחובר: %1", "Connected: %1", "Подключено: %1").arg(page.view.device || "")
                                   : Lang.t("לא מחובר", "Not connected", "Не подключено")]
                    if (page.view.last_sync_at)
                        parts.push(App.t("סנכרון אחרון לפני %1", "last sync %1 ago", "последняя синхронизация %1 назад").arg(App.age(page.view.last_sync_at)))
                    return parts.join(" · ")
                }
                color: Theme.subtle
                wrapMode: Text.Wrap
            }
            GridLayout {
                visible: page.hasView
                Layout.fillWidth: true
                columns: 2
                columnSpacing: 12
                rowSpacing: 12
                Repeater {
                    model: [
                        { key: "week", he: "השבוע", en: "This week", ru: "Эта неделя" },
                        { key: "month", he: "החודש", en: "This month", ru: "Этот месяц" }
                    ]
                    delegate: Rectangle {
                        id: win
                        required property var modelData
                        readonly property var w: page.hasView && page.view[modelData.key] ? page.view[modelData.key] : ({})
                        Layout.fillWidth: true
                        implicitHeight: stats.implicitHeight + 24
                        color: Theme.surface
                        border.color: Theme.border
                        radius: 6
                        ColumnLayout {
                            id: stats
                            anchors.fill: parent
                            anchors.margins: 12
                            spacing: 4
                            Label {
                                text: Lang.t(win.modelData.he, win.modelData.en, win.modelData.ru)
                                font.bold: true
                            }
                            Label {
                                text: {
                                    Lang.code
                                    return App.t("%1 אימונים · %2 דק׳", "%1 workouts · %2 min", "%1 тренировок · %2 мин")
                                        .arg(page.amount(win.w.workouts)).arg(page.amount(win.w.minutes))
                                }
                                font.pixelSize: 16
                            }
                            Label {
                                Layout.fillWidth: true
                                color: Theme.subtle
                                wrapMode: Text.Wrap
                                text: {
                                    Lang.code
                                    return App.t("%1 קק״ל · %2 ק״מ · %3 צעדים · דופק %4", "%1 kcal · %2 km · %3 steps · %4 bpm", "%1 ккал · %2 км · %3 шагов · пульс %4")
                                        .arg(page.amount(win.w.kcal)).arg(page.amount(win.w.distance_km, 1))
                                        .arg(page.amount(win.w.steps)).arg(page.amount(win.w.avg_hr))
                                }
                            }
                        }
                    }
                }
            }
            Label {
                visible: page.hasView
                text: {
                    Lang.code
                    return page.hasView ? App.t("סך הכול %1 אימונים · רצף של %2 ימים", "%1 workouts in all · %2-day streak", "Всего тренировок: %1 · серия %2 дн.")
                                          .arg(page.amount(page.view.total_workouts)).arg(page.amount(page.view.streak)) : ""
                }
            }

            Label {
                visible: Health.workouts.length > 0
                text: Lang.t("אימונים אחרונים", "Recent workouts", "Последние тренировки")
                font.bold: true
            }
            Label {
                objectName: "healthNoWorkouts"
                visible: page.hasView && Health.workouts.length === 0
                Layout.fillWidth: true
                text: Lang.t("אין עדיין אימונים. אימון שתסיימו בשעון יופיע כאן מעצמו.",
                             "No workouts yet. A workout you finish on the watch shows up here by itself.",
                             "Тренировок пока нет. Тренировка, законченная на часах, появится здесь сама.")
                color: Theme.subtle
                wrapMode: Text.Wrap
            }
            Repeater {
                model: Health.workouts
                delegate: Rectangle {
                    id: workout
                    required property var modelData
                    Layout.fillWidth: true
                    implicitHeight: 48
                    color: Theme.surface
                    border.color: Theme.border
                    radius: 4
                    RowLayout {
                        anchors.fill: parent
                        anchors.margins: 10
                        spacing: 10
                        Label {
                            text: workout.modelData.title
                            font.bold: true
                        }
                        Label {
                            Layout.fillWidth: true
                            elide: Text.ElideRight
                            color: Theme.subtle
                            text: {
                                Lang.code
                                const m = workout.modelData
                                const parts = [page.amount(m.minutes) + " " + Lang.t("דק׳", "min", "мин")]
                                if (m.kcal !== undefined && m.kcal !== null) parts.push(page.amount(m.kcal) + " " + Lang.t("קק״ל", "kcal", "ккал"))
                                if (m.km !== undefined && m.km !== null) parts.push(page.amount(m.km, 2) + " " + Lang.t("ק״מ", "km", "км"))
                                if (m.avgHr !== undefined && m.avgHr !== null) parts.push("♥ " + page.amount(m.avgHr))
                                return parts.join(" · ")
                            }
                        }
                        Label {
                            color: Theme.subtle
                            text: {
                                Lang.code
                                const start = workout.modelData.start
                                return start instanceof Date ? start.toLocaleString(Qt.locale(Lang.code), Locale.ShortFormat) : String(start || "")
                            }
                        }
                    }
                }
            }
            Item { height: 16 }
        }
    }
}

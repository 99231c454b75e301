import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The first-run introduction: what the app does, and the language to use it in.
Item {
    id: intro
    property int step: 0
    readonly property var pages: [
        { title: Lang.t("ברוכים הבאים ל־Halvenmark", "Welcome to Halvenmark", "Добро пожаловать в Halvenmark"),
          body: Lang.t("סוכן אישי שעובד בשבילכם: כתבו לו, צרפו קבצים ועקבו אחרי העבודה שלו בזמן אמת.",
                       "A personal agent that works for you: write to it, attach files and watch its work live.",
                       "Личный агент, который работает на вас: пишите ему, прикладывайте файлы и следите за работой вживую.") },
        { title: Lang.t("שום דבר לא הולך לאיבוד", "Nothing gets lost", "Ничего не теряется"),
          body: Lang.t("כל הודעה נשמרת במכשיר לפני שהיא נשלחת, ונשלחת כשיש חיבור.",
                       "Every message is kept on this device before it is sent, and goes out when there is a connection.",
                       "Каждое сообщение сначала сохраняется на этом устройстве и уходит, когда появится связь.") },
        { title: Lang.t("הכול במקום אחד", "Everything in one place", "Всё в одном месте"),
          body: Lang.t("פרויקטים, משימות ואוטומציות נמצאים בלשוניות שמעל השיחה.",
                       "Projects, tasks and automations are in the tabs above the conversation.",
                       "Проекты, задачи и автоматизации — во вкладках над разговором.") }
    ]

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 48, 480)
        spacing: 16

        Label {
            Layout.fillWidth: true
            text: intro.pages[intro.step].title
            font.pixelSize: 26
            font.bold: true
            wrapMode: Text.Wrap
        }
        Label {
            Layout.fillWidth: true
            text: intro.pages[intro.step].body
            font.pixelSize: 16
            color: Theme.subtle
            wrapMode: Text.Wrap
        }
        LanguagePicker {
            opacity: intro.step === 0 ? 1 : 0
            enabled: intro.step === 0
        }
        RowLayout {
            Layout.fillWidth: true
            PageIndicator {
                count: intro.pages.length
                currentIndex: intro.step
            }
            Item { Layout.fillWidth: true }
            Button {
                objectName: "introNext"
                highlighted: true
                text: intro.step < intro.pages.length - 1 ? Lang.t("הבא", "Next", "Далее")
                                                           : Lang.t("מתחילים", "Get started", "Начать")
                onClicked: {
                    if (intro.step < intro.pages.length - 1)
                        intro.step++
                    else
                        App.onboarded = true
                }
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The call's settings: where the sound goes and comes from, how sensitive the interruption
// is, the agent's voice, language and provider, and the call memory.
ScrollView {
    id: settings
    required property CallController controller
    readonly property Call call: controller.call
    // A list closed: the keys go back to the call screen.
    signal done()
    contentWidth: availableWidth
    clip: true

    // The index of a value in a list of maps, for a combo's currentIndex.
    function indexOf(list, key, value) {
        for (let i = 0; i < list.length; ++i)
            if (list[i][key] === value)
                return i
        return -1
    }

    ColumnLayout {
        width: settings.availableWidth
        spacing: 6

        Label { text: Lang.t("רמקול", "Speaker", "Динамик"); font.bold: true }
        ComboBox {
            objectName: "outputDevice"
            Layout.fillWidth: true
            model: settings.controller.outputs
            textRole: "name"
            valueRole: "id"
            currentIndex: settings.indexOf(settings.controller.outputs, "id", settings.controller.outputId)
            onActivated: { settings.controller.chooseOutput(currentValue); settings.done() }
        }
        Label {
            Layout.fillWidth: true
            visible: text !== ""
            text: settings.call.routeDetail
            color: Theme.subtle
            horizontalAlignment: Text.AlignLeft
            wrapMode: Text.Wrap
            textFormat: Text.PlainText
        }
        Label { text: Lang.t("מיקרופון", "Microphone", "Микрофон"); font.bold: true }
        ComboBox {
            objectName: "inputDevice"
            Layout.fillWidth: true
            model: settings.controller.inputs
            textRole: "name"
            valueRole: "id"
            currentIndex: settings.indexOf(settings.controller.inputs, "id", settings.controller.inputId)
            onActivated: { settings.controller.chooseInput(currentValue); settings.done() }
        }
        Label {
            Layout.fillWidth: true
            visible: text !== ""
            text: settings.call.inputName
            color: Theme.subtle
            horizontalAlignment: Text.AlignLeft
            elide: Text.ElideRight
            textFormat: Text.PlainText
        }

        Label {
            Layout.topMargin: 6
            text: Lang.t("רגישות להפרעה", "Interruption threshold", "Порог перебивания")
                  + ": \u2066" + Math.round(settings.controller.threshold) + " dB\u2069"
            font.bold: true
        }
        Slider {
            objectName: "thresholdSlider"
            Layout.fillWidth: true
            focusPolicy: Qt.NoFocus
            from: -50
            to: -20
            stepSize: 1
            value: settings.controller.threshold
            onMoved: settings.controller.threshold = value
        }
        Label {
            Layout.fillWidth: true
            text: Lang.t("נמוך יותר: גם דיבור שקט קוטע את הסוכן. גבוה יותר: רק דיבור חזק.",
                         "Lower: quiet speech interrupts the agent too. Higher: only loud speech does.",
                         "Ниже: агента перебивает и тихая речь. Выше: только громкая.")
            color: Theme.subtle
            wrapMode: Text.Wrap
            font.pixelSize: 11
        }

        Label { Layout.topMargin: 6; text: Lang.t("קול", "Voice", "Голос"); font.bold: true }
        ComboBox {
            objectName: "voiceChoice"
            Layout.fillWidth: true
            enabled: !settings.controller.saving
            // The chosen voice stays listed even before the server names its voices.
            model: settings.call.voiceNames.indexOf(settings.call.voice) >= 0 ? settings.call.voiceNames
                   : [settings.call.voice].concat(settings.call.voiceNames)
            currentIndex: model.indexOf(settings.call.voice)
            onActivated: { settings.controller.choose(currentText, "", ""); settings.done() }
        }
        Label { text: Lang.t("שפת השיחה", "Call language", "Язык звонка"); font.bold: true }
        ComboBox {
            objectName: "languageChoice"
            Layout.fillWidth: true
            enabled: !settings.controller.saving
            model: settings.controller.languages
            textRole: "label"
            valueRole: "value"
            currentIndex: settings.indexOf(settings.controller.languages, "value", settings.call.language)
            onActivated: { settings.controller.choose("", currentValue, ""); settings.done() }
        }
        Label { text: Lang.t("ספק", "Provider", "Провайдер"); font.bold: true }
        ComboBox {
            objectName: "providerChoice"
            Layout.fillWidth: true
            enabled: !settings.controller.saving
            model: settings.controller.providers
            textRole: "label"
            valueRole: "value"
            currentIndex: settings.indexOf(settings.controller.providers, "value", settings.call.provider)
            onActivated: { settings.controller.choose("", "", currentValue); settings.done() }
        }
        Label {
            Layout.fillWidth: true
            visible: settings.controller.active
            text: Lang.t("שינוי ייכנס לתוקף בשיחה הבאה.", "Changes take effect on the next call.",
                         "Изменения вступят в силу со следующего звонка.")
            color: Theme.subtle
            font.pixelSize: 11
        }

        Label { Layout.topMargin: 6; text: Lang.t("זיכרון", "Memory", "Память"); font.bold: true }
        Label {
            objectName: "memoryCounts"
            Layout.fillWidth: true
            text: Lang.t("לטווח קצר: ", "Short term: ", "Краткосрочная: ") + settings.call.shortMemory
                  + " · " + Lang.t("לטווח ארוך: ", "Long term: ", "Долгосрочная: ") + settings.call.longMemory
        }
        Label {
            Layout.fillWidth: true
            visible: text !== ""
            text: settings.call.memoryStatus
            color: Theme.subtle
            wrapMode: Text.Wrap
            textFormat: Text.PlainText
        }
        RowLayout {
            Button {
                objectName: "consolidateButton"
                focusPolicy: Qt.NoFocus
                enabled: !settings.call.memoryBusy
                text: Lang.t("שמירת השיחה בזיכרון", "Save the calls to memory", "Сохранить звонки в память")
                onClicked: settings.controller.consolidateMemory()
            }
            BusyIndicator {
                running: settings.call.memoryBusy
                visible: running
                implicitWidth: 24
                implicitHeight: 24
            }
        }
    }
}

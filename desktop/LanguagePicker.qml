import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Halvenmark.Desktop

// The three languages, each named in itself.
RowLayout {
    spacing: 4
    Repeater {
        model: [{ code: "en", name: "English" }, { code: "ru", name: "Русский" }, { code: "he", name: "עברית" }]
        delegate: Button {
            required property var modelData
            objectName: "lang_" + modelData.code
            text: modelData.name
            checkable: true
            checked: Lang.code === modelData.code
            onClicked: App.setLanguage(modelData.code)
        }
    }
}

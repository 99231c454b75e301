pragma Singleton
import QtQuick
import Halvenmark.Desktop

// Text choice for bindings: reading `code` here ties every binding that calls t() to the
// language, so a new language re-evaluates the texts at once.
QtObject {
    readonly property string code: App.language.language
    readonly property bool rtl: App.language.rightToLeft
    // For Theme, which cannot import the module it belongs to.
    readonly property string skin: App.skin
    readonly property string appearance: App.appearance

    function t(he, en, ru) {
        return code.length >= 0 ? App.t(he, en, ru) : en
    }
}

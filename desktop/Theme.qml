pragma Singleton
import QtQuick

// Colours from the skin and the appearance (light, dark, or the system's).
QtObject {
    property SystemPalette system: SystemPalette {}
    readonly property bool dark: Lang.appearance === "dark"
        || (Lang.appearance === "auto" && system.window.hslLightness < 0.5)

    readonly property color accent: Lang.skin === "ocean" ? "#0f7c8c"
        : Lang.skin === "forest" ? "#2f7d4a" : "#3a62d6"
    readonly property color background: dark ? "#1b1d22" : "#f4f5f8"
    readonly property color surface: dark ? "#262a31" : "#ffffff"
    readonly property color raised: dark ? "#2f343d" : "#eceef3"
    readonly property color text: dark ? "#e8eaee" : "#1c1f24"
    readonly property color subtle: dark ? "#9aa1ad" : "#636a76"
    readonly property color border: dark ? "#3a3f48" : "#d9dce3"
    readonly property color userBubble: Qt.tint(surface, Qt.rgba(accent.r, accent.g, accent.b, dark ? 0.35 : 0.16))
    readonly property color danger: dark ? "#ff7b72" : "#c62828"
    readonly property color warning: dark ? "#5a4a1a" : "#fff3cd"
    readonly property int gap: 8
}

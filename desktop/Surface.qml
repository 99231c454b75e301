import QtQuick
import QtQuick.Controls

// The window's content: the theme's colours as the palette every control below draws with.
Pane {
    padding: 0
    background: Rectangle { color: Theme.background }
    palette.window: Theme.background
    palette.windowText: Theme.text
    palette.base: Theme.surface
    palette.text: Theme.text
    palette.button: Theme.raised
    palette.buttonText: Theme.text
    palette.highlight: Theme.accent
    palette.highlightedText: "#ffffff"
    palette.mid: Theme.border
    palette.dark: Theme.accent
    palette.light: Theme.surface
    palette.midlight: Theme.raised
    palette.alternateBase: Theme.raised
    palette.toolTipBase: Theme.raised
    palette.toolTipText: Theme.text
}

import QtQuick
import Halvenmark.Desktop

// A message's rendered text: every line carries its own direction (the HTML sets dir per
// block), links open outside, nothing is fetched.
TextEdit {
    id: view
    property string html
    property string plain
    textFormat: TextEdit.RichText
    text: html
    readOnly: true
    selectByMouse: true
    persistentSelection: false
    wrapMode: TextEdit.Wrap
    color: Theme.text
    selectionColor: Theme.accent
    font.pixelSize: 15
    Accessible.name: plain
    onLinkActivated: link => Qt.openUrlExternally(link)

    HoverHandler {
        cursorShape: view.hoveredLink !== "" ? Qt.PointingHandCursor : Qt.IBeamCursor
    }
}

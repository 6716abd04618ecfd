import QtQuick

// One of the screens' symbols, from the image URL the tray chose, drawn in `tint`: the colour
// of the text beside it where the screen gives one, else the theme's secondary text colour.
// Keeps its place when there is none, so rows with and without a symbol line up.
Item {
    id: icon
    property string source
    property color tint: palette.placeholderText
    property int size: 14
    implicitWidth: size
    implicitHeight: size
    Accessible.ignored: true

    Image {
        anchors.fill: parent
        // "image://symbol/name@rrggbb": the provider colours the theme's or our own drawing.
        source: icon.source.length > 0 ? icon.source + "@" + icon.tint.toString().slice(-6) : ""
        sourceSize: Qt.size(icon.size, icon.size)
        fillMode: Image.PreserveAspectFit
    }
}

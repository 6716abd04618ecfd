import QtQuick

// One of the screens' symbols, from the image URL the tray chose. Keeps its place when there
// is none, so rows with and without a symbol line up.
Item {
    id: icon
    property alias source: image.source
    property int size: 14
    implicitWidth: size
    implicitHeight: size

    Image {
        id: image
        anchors.fill: parent
        sourceSize: Qt.size(icon.size, icon.size)
        fillMode: Image.PreserveAspectFit
    }
}

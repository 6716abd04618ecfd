import QtQuick

// One of the screens' symbols, already resolved to an image by the model.
Item {
    id: icon
    property alias source: image.source
    property int size: 14
    implicitWidth: size
    implicitHeight: size
    visible: image.source != ""

    Image {
        id: image
        anchors.fill: parent
        sourceSize: Qt.size(icon.size, icon.size)
        fillMode: Image.PreserveAspectFit
    }
}

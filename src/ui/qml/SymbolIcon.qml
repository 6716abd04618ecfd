import QtQuick

// One of the screens' symbols, already resolved to an image by the model.
Image {
    property int size: 14
    sourceSize: Qt.size(size, size)
    width: size
    height: size
    visible: source != ""
    fillMode: Image.PreserveAspectFit
}

import QtQuick

// A short text in a tinted capsule.
Rectangle {
    id: pill
    property alias text: caption.text
    property color tint: palette.highlight

    implicitWidth: caption.implicitWidth + 14
    implicitHeight: caption.implicitHeight + 4
    radius: height / 2
    color: Qt.rgba(tint.r, tint.g, tint.b, 0.18)

    PlainText {
        id: caption
        anchors.centerIn: parent
        font.pixelSize: 10
        font.bold: true
        color: pill.tint
    }
}

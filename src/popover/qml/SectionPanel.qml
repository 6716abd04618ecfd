import QtQuick
import QtQuick.Layouts

// A titled panel on a rounded background; children go under the title line.
Rectangle {
    id: panel
    property alias title: titleLabel.text
    property alias trailing: trailingSlot.data
    default property alias content: body.data

    implicitHeight: column.implicitHeight + 20
    radius: 8
    color: Qt.rgba(palette.text.r, palette.text.g, palette.text.b, 0.05)
    Accessible.role: Accessible.Grouping
    Accessible.ignored: !visible
    Accessible.name: title

    ColumnLayout {
        id: column
        anchors.fill: parent
        anchors.margins: 10
        spacing: 8
        RowLayout {
            Layout.fillWidth: true
            visible: titleLabel.text.length > 0 || trailingSlot.children.length > 0
            PlainText {
                id: titleLabel
                font.bold: true
                font.pixelSize: 12
                color: palette.windowText
            }
            Item { Layout.fillWidth: true }
            RowLayout { id: trailingSlot }
        }
        ColumnLayout {
            id: body
            Layout.fillWidth: true
            spacing: 6
        }
    }
}

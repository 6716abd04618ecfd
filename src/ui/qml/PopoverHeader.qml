import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuonBrix

RowLayout {
    id: header
    required property PopoverModel model
    spacing: 10

    QuonBrixMark {
        Layout.preferredWidth: 34
        Layout.preferredHeight: 34
    }

    ColumnLayout {
        Layout.fillWidth: true
        spacing: 2
        RowLayout {
            spacing: 6
            Label {
                text: header.model.title
                font.bold: true
                font.pixelSize: 15
            }
            StatusPill {
                text: header.model.statusPill
            }
        }
        Label {
            Layout.fillWidth: true
            text: header.model.subtitle
            elide: Text.ElideRight
            font.pixelSize: 11
            color: palette.placeholderText
        }
    }
}

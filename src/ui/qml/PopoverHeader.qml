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

    Button {
        visible: !header.model.loading
        text: header.model.work.update.label
        icon.source: header.model.work.update.symbol
        enabled: header.model.work.update.enabled
        font.pixelSize: 11
        focusPolicy: Qt.StrongFocus
        ToolTip.visible: hovered
        ToolTip.text: header.model.work.update.help
        Accessible.name: header.model.work.update.label
        Accessible.description: header.model.work.update.help
        onClicked: header.model.work.syncNow()
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuonBrix

// "Today": two or three figures and the output split by source.
SectionPanel {
    id: panel
    required property PopoverModel model
    title: model.todayTitle

    RowLayout {
        Layout.fillWidth: true
        spacing: 8
        Repeater {
            model: panel.model.todayColumns
            delegate: ColumnLayout {
                id: column
                required property var modelData
                Layout.fillWidth: true
                Layout.preferredWidth: 1
                spacing: 0
                Label {
                    Layout.fillWidth: true
                    text: column.modelData.value
                    font.pixelSize: 18
                    font.bold: true
                    fontSizeMode: Text.HorizontalFit
                    minimumPixelSize: 10
                }
                RowLayout {
                    spacing: 3
                    Label {
                        text: column.modelData.caption
                        font.pixelSize: 10
                        color: palette.placeholderText
                    }
                    SymbolIcon {
                        source: column.modelData.symbol
                        size: 11
                        HoverHandler { id: infoHover }
                        ToolTip.visible: infoHover.hovered
                        ToolTip.text: column.modelData.help
                        Accessible.role: Accessible.StaticText
                        Accessible.description: column.modelData.help
                    }
                }
                Accessible.role: Accessible.StaticText
                Accessible.name: modelData.value + " " + modelData.caption
            }
        }
    }

    Repeater {
        model: panel.model.sourceShares
        delegate: RowLayout {
            id: share
            required property var modelData
            Layout.fillWidth: true
            Label { Layout.preferredWidth: 56; text: share.modelData.name; font.pixelSize: 11 }
            BurnRateBar { Layout.fillWidth: true; fraction: share.modelData.fraction }
            Label {
                Layout.preferredWidth: 36
                horizontalAlignment: Text.AlignRight
                text: share.modelData.percent
                font.pixelSize: 11
            }
        }
    }
}

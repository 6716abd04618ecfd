import QtQuick
import QtQuick.Layouts
import QuonBrix

// "Today": two or three figures and the output split by source.
SectionPanel {
    id: panel
    required property PopoverView view
    title: view.today.title

    RowLayout {
        Layout.fillWidth: true
        spacing: 8
        Repeater {
            model: panel.view.todayColumns
            delegate: ColumnLayout {
                id: column
                required property string value
                required property string caption
                required property string help
                required property string symbol
                Layout.fillWidth: true
                Layout.preferredWidth: 1
                spacing: 0
                PlainText {
                    Layout.fillWidth: true
                    text: column.value
                    font.pixelSize: 18
                    font.bold: true
                    fontSizeMode: Text.HorizontalFit
                    minimumPixelSize: 10
                    color: palette.windowText
                }
                RowLayout {
                    spacing: 3
                    PlainText {
                        text: column.caption
                        font.pixelSize: 10
                        color: palette.placeholderText
                    }
                    SymbolIcon {
                        source: column.symbol
                        size: 11
                        HelpTip { help: column.help }
                        Accessible.ignored: false
                        Accessible.role: Accessible.StaticText
                        Accessible.name: column.help
                    }
                }
                Accessible.role: Accessible.StaticText
                Accessible.name: value + " " + caption
            }
        }
    }

    Repeater {
        model: panel.view.sourceShares
        delegate: RowLayout {
            id: share
            required property string name
            required property real fraction
            required property string percent
            Layout.fillWidth: true
            PlainText {
                Layout.preferredWidth: 56
                text: share.name
                font.pixelSize: 11
                color: palette.windowText
            }
            BurnRateBar { Layout.fillWidth: true; fraction: share.fraction; name: share.name + " " + share.percent }
            PlainText {
                Layout.preferredWidth: 36
                horizontalAlignment: Text.AlignRight
                text: share.percent
                font.pixelSize: 11
                color: palette.windowText
            }
        }
    }
}

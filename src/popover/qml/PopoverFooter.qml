import QtQuick
import QtQuick.Layouts
import QuonBrix

ColumnLayout {
    id: footer
    required property PopoverView view
    spacing: 6

    Rectangle {
        Layout.fillWidth: true
        implicitHeight: 1
        color: palette.mid
    }

    Repeater {
        model: footer.view.footer.messages
        delegate: PlainText {
            required property string modelData
            Layout.fillWidth: true
            text: modelData
            font.pixelSize: 11
            wrapMode: Text.WordWrap
            color: palette.windowText
        }
    }
    PlainText {
        text: footer.view.footer.syncDetail
        font.pixelSize: 10
        color: palette.placeholderText
    }

    RowLayout {
        Layout.fillWidth: true
        FooterButton {
            command: footer.view.footer.workspace
            onClicked: footer.view.openWorkspace()
        }
        FooterButton {
            command: footer.view.footer.meter
            onClicked: footer.view.openMeter()
        }
        FooterButton {
            command: footer.view.footer.guide
            onClicked: footer.view.showGuide()
        }
        Item { Layout.fillWidth: true }
        FooterButton {
            command: footer.view.footer.quit
            onClicked: footer.view.quit()
        }
    }

    component FooterButton: PlainButton {
        required property var command
        text: command.label
        symbol: command.symbol
        help: command.help
        enabled: command.enabled
        captionUnder: true
        flat: true
        symbolSize: 16
        fontSize: 11
    }
}

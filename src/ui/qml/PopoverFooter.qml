import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuonBrix

ColumnLayout {
    id: footer
    required property PopoverModel model
    spacing: 6

    Rectangle {
        Layout.fillWidth: true
        implicitHeight: 1
        color: palette.mid
    }

    Repeater {
        model: footer.model.work.messages
        delegate: Label {
            required property string modelData
            Layout.fillWidth: true
            text: modelData
            font.pixelSize: 11
            wrapMode: Text.WordWrap
        }
    }
    Label {
        text: footer.model.work.syncDetail
        font.pixelSize: 10
        color: palette.placeholderText
    }

    RowLayout {
        Layout.fillWidth: true
        FooterButton {
            command: footer.model.work.workspace
            onClicked: footer.model.work.openWorkspace()
        }
        FooterButton {
            command: footer.model.work.meter
            onClicked: footer.model.work.openMeter()
        }
        Item { Layout.fillWidth: true }
        FooterButton {
            command: ({ label: footer.model.quitLabel, help: footer.model.quitHelp,
                     symbol: footer.model.quitSymbol, enabled: true })
            onClicked: footer.model.quit()
        }
    }
}

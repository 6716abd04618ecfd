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

    RowLayout {
        Layout.fillWidth: true
        Item { Layout.fillWidth: true }
        ToolButton {
            text: footer.model.quitLabel
            icon.source: footer.model.symbol("power")
            display: AbstractButton.TextUnderIcon
            ToolTip.visible: hovered
            ToolTip.text: footer.model.quitHelp
            Accessible.name: footer.model.quitLabel
            Accessible.description: footer.model.quitHelp
            onClicked: footer.model.quit()
        }
    }
}

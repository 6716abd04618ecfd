import QtQuick
import QtQuick.Layouts
import QuonBrix

// "Cloud sync (optional)": what is shared, and a way to the console to change it.
SectionPanel {
    id: panel
    required property PopoverView view
    title: view.sharing.title

    RowLayout {
        Layout.fillWidth: true
        SymbolIcon {
            source: panel.view.sharing.symbol
            tint: panel.view.sharing.color
            size: 14
        }
        PlainText {
            text: panel.view.sharing.state
            color: panel.view.sharing.color
            font.bold: true
        }
        Item { Layout.fillWidth: true }
        SymbolIcon { source: panel.view.sharing.disclosure; size: 12 }
    }
    PlainText {
        Layout.fillWidth: true
        text: panel.view.sharing.summary
        wrapMode: Text.WordWrap
        font.pixelSize: 11
        color: palette.windowText
    }
    PlainButton {
        text: panel.view.sharing.manage.label
        help: panel.view.sharing.manage.help
        onClicked: panel.view.openWorkspace()
    }

}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuonBrix

// "Cloud sync (optional)": what is shared, and a way to the console to change it.
SectionPanel {
    id: panel
    required property WorkPanelModel work
    title: work.sharingTitle

    RowLayout {
        Layout.fillWidth: true
        SymbolIcon { source: panel.work.sharing.symbol ?? ""; size: 14 }
        Label {
            text: panel.work.sharing.state ?? ""
            color: panel.work.sharing.color ?? palette.text
            font.bold: true
        }
        Item { Layout.fillWidth: true }
        SymbolIcon { source: panel.work.sharing.disclosure ?? ""; size: 12 }
    }
    Label {
        Layout.fillWidth: true
        text: panel.work.sharing.summary ?? ""
        wrapMode: Text.WordWrap
        font.pixelSize: 11
    }
    Button {
        text: panel.work.sharing.manage ?? ""
        Accessible.name: text
        onClicked: panel.work.openWorkspace()
    }
}

import QtQuick
import QtQuick.Layouts
import QuonBrix

// "Local projects": one row per project seen on this machine.
SectionPanel {
    id: panel
    required property PopoverView view
    title: view.projects.title

    PlainText {
        Layout.fillWidth: true
        visible: panel.view.projectRows.count === 0
        text: panel.view.projects.emptyText
        wrapMode: Text.WordWrap
        font.pixelSize: 11
        color: palette.windowText
    }
    Repeater {
        model: panel.view.projectRows
        delegate: RowLayout {
            id: project
            required property string label
            required property string figures
            required property string costHelp
            Layout.fillWidth: true
            PlainText {
                Layout.fillWidth: true
                text: project.label
                elide: Text.ElideRight
                font.pixelSize: 11
                color: palette.windowText
            }
            PlainText {
                text: project.figures
                font.pixelSize: 11
                color: palette.windowText
                HelpTip { help: project.costHelp }
                Accessible.role: Accessible.StaticText
                Accessible.name: text
                Accessible.description: project.costHelp
            }
        }
    }
}

import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuonBrix

// "Local projects": one row per project seen on this machine.
SectionPanel {
    id: panel
    required property WorkPanelModel work
    title: work.projectsTitle

    Label {
        Layout.fillWidth: true
        visible: panel.work.projects.length === 0
        text: panel.work.projectsEmptyText
        wrapMode: Text.WordWrap
        font.pixelSize: 11
    }
    Repeater {
        model: panel.work.projects
        delegate: RowLayout {
            id: project
            required property var modelData
            Layout.fillWidth: true
            Label {
                Layout.fillWidth: true
                text: project.modelData.label
                elide: Text.ElideRight
                font.pixelSize: 11
            }
            Label {
                text: project.modelData.figures
                font.pixelSize: 11
                HoverHandler { id: costHover }
                ToolTip.visible: costHover.hovered
                ToolTip.text: project.modelData.costHelp
                Accessible.role: Accessible.StaticText
                Accessible.name: text
                Accessible.description: project.modelData.costHelp
            }
        }
    }
}

import QtQuick
import QtQuick.Layouts
import QuonBrix

// The setup guide: the onboarding steps, and links to the meter and the workspace.
SectionPanel {
    id: guide
    required property PopoverView view
    title: view.guide.title

    PlainText {
        Layout.fillWidth: true
        text: guide.view.guide.lead
        wrapMode: Text.WordWrap
        font.bold: true
        font.pixelSize: 12
        color: palette.windowText
    }
    PlainText {
        Layout.fillWidth: true
        text: guide.view.guide.intro
        wrapMode: Text.WordWrap
        font.pixelSize: 11
        color: palette.windowText
    }

    Repeater {
        model: guide.view.guideSteps
        delegate: RowLayout {
            id: step
            required property string title
            required property string symbol
            required property string body
            Layout.fillWidth: true
            Layout.topMargin: 4
            spacing: 8
            Accessible.role: Accessible.StaticText
            Accessible.name: title + "\n" + body
            Item {
                Layout.alignment: Qt.AlignTop
                implicitWidth: 22
                implicitHeight: 18
                SymbolIcon {
                    anchors.centerIn: parent
                    source: step.symbol
                    size: 16
                }
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 2
                PlainText {
                    Layout.fillWidth: true
                    text: step.title
                    wrapMode: Text.WordWrap
                    font.bold: true
                    font.pixelSize: 12
                    color: palette.windowText
                }
                PlainText {
                    Layout.fillWidth: true
                    text: step.body
                    wrapMode: Text.WordWrap
                    font.pixelSize: 11
                    lineHeight: 1.15
                    color: palette.windowText
                }
            }
        }
    }

    RowLayout {
        Layout.topMargin: 4
        spacing: 8
        PlainButton {
            text: guide.view.guide.localMeter.label
            symbol: guide.view.guide.localMeter.symbol
            flat: true
            fontSize: 11
            onClicked: guide.view.openMeter()
        }
        PlainButton {
            visible: guide.view.guide.showWorkspace
            text: guide.view.guide.workspace.label
            symbol: guide.view.guide.workspace.symbol
            flat: true
            fontSize: 11
            onClicked: guide.view.openWorkspace()
        }
    }
}

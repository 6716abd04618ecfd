import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuonBrix

// "Current work": start a project timer, and one row per open timer.
SectionPanel {
    id: panel
    required property WorkPanelModel work
    title: work.currentWorkTitle

    Label {
        Layout.fillWidth: true
        text: panel.work.timersHeader
        font.pixelSize: 11
        color: palette.placeholderText
    }

    RowLayout {
        Layout.fillWidth: true
        TextField {
            id: labelField
            Layout.fillWidth: true
            placeholderText: panel.work.labelPlaceholder
            Accessible.name: panel.work.labelPlaceholder
            onAccepted: startButton.clicked()
        }
        Button {
            id: startButton
            text: panel.work.startLabel
            icon.source: panel.work.startSymbol
            enabled: !panel.work.startBusy
            Accessible.name: panel.work.startLabel
            onClicked: {
                panel.work.startTimer(labelField.text)
                labelField.clear()
            }
        }
    }

    Repeater {
        model: panel.work.timers
        delegate: RowLayout {
            id: timer
            required property var modelData
            Layout.fillWidth: true
            SymbolIcon { source: timer.modelData.statusSymbol; size: 14 }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 0
                Label {
                    Layout.fillWidth: true
                    text: timer.modelData.label
                    font.bold: true
                    elide: Text.ElideRight
                }
                Label {
                    text: timer.modelData.caption
                    font.pixelSize: 10
                    color: palette.placeholderText
                }
            }
            ColumnLayout {
                spacing: 0
                Label {
                    Layout.alignment: Qt.AlignRight
                    text: timer.modelData.elapsed
                    font.family: "monospace"
                }
                Label {
                    Layout.alignment: Qt.AlignRight
                    text: timer.modelData.stateWord
                    font.pixelSize: 10
                    color: timer.modelData.color
                }
            }
            IconButton {
                command: timer.modelData.primary
                onClicked: panel.work.timerAction(timer.modelData.primaryAction, timer.modelData.id)
            }
            IconButton {
                command: timer.modelData.complete
                onClicked: panel.work.timerAction("complete", timer.modelData.id)
            }
            IconButton {
                command: timer.modelData.cancel
                onClicked: panel.work.timerAction("cancel", timer.modelData.id)
            }
        }
    }

    RowLayout {
        Layout.fillWidth: true
        visible: panel.work.feedback.text !== undefined
        SymbolIcon { source: panel.work.feedback.symbol ?? ""; size: 12 }
        Label {
            Layout.fillWidth: true
            text: panel.work.feedback.text ?? ""
            color: panel.work.feedback.color ?? palette.text
            font.pixelSize: 11
            wrapMode: Text.WordWrap
        }
    }
}

import QtQuick
import QtQuick.Layouts
import QuonBrix

// "Current work": start a project timer, and one row per open timer.
SectionPanel {
    id: panel
    required property PopoverView view
    title: view.work.title

    PlainText {
        Layout.fillWidth: true
        text: panel.view.work.timersHeader
        font.pixelSize: 11
        color: palette.placeholderText
    }

    RowLayout {
        Layout.fillWidth: true
        LabelField {
            id: labelField
            Layout.fillWidth: true
            placeholder: panel.view.work.labelPlaceholder
            onAccepted: startButton.clicked()
        }
        PlainButton {
            id: startButton
            text: panel.view.work.start.label
            symbol: panel.view.work.start.symbol
            enabled: panel.view.work.start.enabled
            onClicked: {
                panel.view.startTimer(labelField.text)
                labelField.clear()
            }
        }
    }

    Repeater {
        model: panel.view.timers
        delegate: RowLayout {
            id: timer
            required property string sessionId
            required property string label
            required property string caption
            required property string elapsed
            required property string stateWord
            required property string color
            required property string statusSymbol
            required property string primaryAction
            required property var primary
            required property var complete
            required property var cancel
            Layout.fillWidth: true
            SymbolIcon { source: timer.statusSymbol; tint: timer.color; size: 14 }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 0
                PlainText {
                    Layout.fillWidth: true
                    text: timer.label
                    font.bold: true
                    elide: Text.ElideRight
                    color: palette.windowText
                }
                PlainText {
                    text: timer.caption
                    font.pixelSize: 10
                    color: palette.placeholderText
                }
            }
            ColumnLayout {
                spacing: 0
                PlainText {
                    Layout.alignment: Qt.AlignRight
                    text: timer.elapsed
                    font.family: "monospace"
                    color: palette.windowText
                }
                PlainText {
                    Layout.alignment: Qt.AlignRight
                    text: timer.stateWord
                    font.pixelSize: 10
                    color: timer.color
                }
            }
            // Said with the timer's label: "Pause Client A", not three times "Pause".
            TimerButton {
                timerLabel: timer.label
                command: timer.primary
                onClicked: panel.view.timerAction(timer.primaryAction, timer.sessionId)
            }
            TimerButton {
                timerLabel: timer.label
                command: timer.complete
                onClicked: panel.view.timerAction("complete", timer.sessionId)
            }
            TimerButton {
                timerLabel: timer.label
                command: timer.cancel
                onClicked: panel.view.timerAction("cancel", timer.sessionId)
            }
        }
    }

    RowLayout {
        Layout.fillWidth: true
        visible: panel.view.work.feedback.text.length > 0
        SymbolIcon {
            source: panel.view.work.feedback.symbol
            tint: panel.view.work.feedback.color
            size: 12
        }
        PlainText {
            Layout.fillWidth: true
            text: panel.view.work.feedback.text
            color: panel.view.work.feedback.color
            font.pixelSize: 11
            wrapMode: Text.WordWrap
        }
    }

    // A small button showing only its symbol; its caption is for screen readers.
    component TimerButton: PlainButton {
        required property var command
        property string timerLabel
        Accessible.name: text + " " + timerLabel
        text: command.label
        symbol: command.symbol
        help: command.help
        enabled: command.enabled
        showText: false
        flat: true
    }
}

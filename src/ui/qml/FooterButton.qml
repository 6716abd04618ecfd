import QtQuick
import QtQuick.Controls

// A footer command: its symbol above a short caption.
ToolButton {
    required property var command
    text: command.label
    icon.source: command.symbol
    display: AbstractButton.TextUnderIcon
    enabled: command.enabled
    focusPolicy: Qt.StrongFocus
    font.pixelSize: 11
    ToolTip.visible: hovered
    ToolTip.text: command.help
    Accessible.name: command.label
    Accessible.description: command.help
}

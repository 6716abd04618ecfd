import QtQuick
import QtQuick.Controls

// A small button showing one symbol, with its help as tooltip and accessible description.
ToolButton {
    id: control
    required property var command
    icon.source: command.symbol
    icon.width: 14
    icon.height: 14
    display: AbstractButton.IconOnly
    enabled: command.enabled
    focusPolicy: Qt.StrongFocus
    ToolTip.visible: hovered
    ToolTip.text: command.help
    Accessible.name: command.label
    Accessible.description: command.help
}

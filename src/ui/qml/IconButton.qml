import QtQuick
import QtQuick.Controls

// A small button showing one symbol, with its help as tooltip and accessible description.
ToolButton {
    id: control
    required property var spec
    icon.source: spec.symbol
    icon.width: 14
    icon.height: 14
    display: AbstractButton.IconOnly
    enabled: spec.enabled
    focusPolicy: Qt.StrongFocus
    ToolTip.visible: hovered
    ToolTip.text: spec.help
    Accessible.name: spec.label
    Accessible.description: spec.help
}

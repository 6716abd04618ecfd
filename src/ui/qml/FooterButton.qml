import QtQuick
import QtQuick.Controls

// A footer command: its symbol above a short caption.
ToolButton {
    required property var spec
    text: spec.label
    icon.source: spec.symbol
    display: AbstractButton.TextUnderIcon
    enabled: spec.enabled
    focusPolicy: Qt.StrongFocus
    font.pixelSize: 11
    ToolTip.visible: hovered
    ToolTip.text: spec.help
    Accessible.name: spec.label
    Accessible.description: spec.help
}

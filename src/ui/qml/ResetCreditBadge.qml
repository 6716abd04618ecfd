import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Codex reset tickets: count, and the earliest expiry when known.
ColumnLayout {
    id: badge
    required property var credits
    spacing: 0
    HoverHandler { id: hover }
    ToolTip.visible: hover.hovered
    ToolTip.text: credits.help
    Accessible.role: Accessible.StaticText
    Accessible.name: credits.text
    Accessible.description: credits.help

    RowLayout {
        spacing: 4
        SymbolIcon { source: badge.credits.symbol; size: 12 }
        Label { text: badge.credits.text; font.pixelSize: 11 }
    }
    Label {
        visible: badge.credits.expiry.length > 0
        text: badge.credits.expiry
        font.pixelSize: 10
        color: palette.placeholderText
    }
}

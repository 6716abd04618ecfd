import QtQuick
import QtQuick.Layouts

// Codex reset tickets: count, and the earliest expiry when known.
ColumnLayout {
    id: badge
    required property var credits
    spacing: 0
    HelpTip { help: badge.credits.help }
    Accessible.role: Accessible.StaticText
    Accessible.name: credits.text
    Accessible.description: credits.help

    RowLayout {
        spacing: 4
        SymbolIcon { source: badge.credits.symbol; size: 12 }
        Text { text: badge.credits.text; font.pixelSize: 11; color: palette.windowText }
    }
    PlainText {
        visible: text.length > 0
        text: badge.credits.expiry
        font.pixelSize: 10
        color: palette.placeholderText
    }
}

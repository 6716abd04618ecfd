import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuonBrix

// "Can I keep working?": the headline, then one group of rows per provider; or the
// unavailable form when no provider reported anything.
SectionPanel {
    id: panel
    required property PopoverModel model
    title: model.limitsTitle

    // Headline with the remaining headroom on the right.
    RowLayout {
        Layout.fillWidth: true
        visible: panel.model.hasLimitReadings
        SymbolIcon { source: panel.model.headline.symbol ?? ""; size: 16 }
        Label {
            Layout.fillWidth: true
            text: panel.model.headline.text ?? ""
            color: panel.model.headline.color ?? palette.text
            font.bold: true
            elide: Text.ElideRight
        }
        Label {
            text: panel.model.headline.remaining ?? ""
            color: panel.model.headline.color ?? palette.text
            font.bold: true
        }
    }
    Label {
        Layout.fillWidth: true
        visible: panel.model.hasLimitReadings && text.length > 0
        text: panel.model.headline.detail ?? ""
        font.pixelSize: 11
        color: palette.placeholderText
        elide: Text.ElideRight
    }

    Repeater {
        model: panel.model.hasLimitReadings ? panel.model.limitGroups : []
        delegate: ColumnLayout {
            id: group
            required property var modelData
            Layout.fillWidth: true
            spacing: 4
            RowLayout {
                Layout.fillWidth: true
                Layout.topMargin: 4
                Rectangle { width: 8; height: 8; radius: 4; color: group.modelData.color }
                Label { text: group.modelData.heading; font.bold: true; font.pixelSize: 11 }
                Item { Layout.fillWidth: true }
                Loader {
                    active: group.modelData.credits.text !== undefined
                    sourceComponent: ResetCreditBadge { credits: group.modelData.credits }
                }
            }
            Repeater {
                model: group.modelData.rows
                delegate: RowLayout {
                    id: row
                    required property var modelData
                    Layout.fillWidth: true
                    opacity: modelData.stale ? 0.45 : 1.0
                    HoverHandler { id: rowHover }
                    ToolTip.visible: rowHover.hovered
                    ToolTip.text: modelData.help
                    RowLayout {
                        Layout.preferredWidth: 148
                        Layout.maximumWidth: 148
                        spacing: 4
                        SymbolIcon { source: row.modelData.symbol; size: 12 }
                        Label {
                            Layout.fillWidth: true
                            text: row.modelData.window
                            font.pixelSize: 11
                            elide: Text.ElideRight
                        }
                    }
                    BurnRateBar {
                        Layout.fillWidth: true
                        fraction: row.modelData.fraction
                        tint: group.modelData.color
                        help: row.modelData.help
                    }
                    ColumnLayout {
                        spacing: 0
                        Layout.preferredWidth: 84
                        Label {
                            Layout.alignment: Qt.AlignRight
                            text: row.modelData.percent
                            font.pixelSize: 11
                            font.bold: true
                        }
                        Label {
                            Layout.alignment: Qt.AlignRight
                            visible: text.length > 0
                            text: row.modelData.resets
                            font.pixelSize: 10
                            color: palette.placeholderText
                        }
                    }
                    Accessible.role: Accessible.Row
                    Accessible.name: modelData.window + " " + modelData.percent
                    Accessible.description: modelData.help
                }
            }
        }
    }

    // Unavailable form.
    RowLayout {
        Layout.fillWidth: true
        visible: !panel.model.hasLimitReadings
        SymbolIcon { source: panel.model.unavailable.symbol; size: 16 }
        Label { text: panel.model.unavailable.heading; font.bold: true }
    }
    Label {
        Layout.fillWidth: true
        visible: !panel.model.hasLimitReadings
        text: panel.model.unavailable.text
        wrapMode: Text.WordWrap
        font.pixelSize: 11
    }
    Rectangle {
        Layout.fillWidth: true
        implicitHeight: 1
        color: palette.mid
        visible: !panel.model.hasLimitReadings && panel.model.unavailable.credits.text !== undefined
    }
    RowLayout {
        Layout.fillWidth: true
        visible: !panel.model.hasLimitReadings && panel.model.unavailable.credits.text !== undefined
        Label { text: panel.model.unavailable.creditsLabel; font.pixelSize: 11 }
        Item { Layout.fillWidth: true }
        Loader {
            active: parent.visible
            sourceComponent: ResetCreditBadge { credits: panel.model.unavailable.credits }
        }
    }
}

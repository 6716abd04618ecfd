import QtQuick
import QtQuick.Layouts
import QuonBrix

// "Can I keep working?": the headline, then one group of rows per provider; or the
// unavailable form when no provider reported anything.
SectionPanel {
    id: panel
    required property PopoverView view
    title: view.limits.title

    // Headline with the remaining headroom on the right.
    RowLayout {
        Layout.fillWidth: true
        visible: panel.view.limits.hasReadings
        SymbolIcon {
            source: panel.view.limits.headline.symbol
            tint: panel.view.limits.headline.color
            size: 16
        }
        PlainText {
            Layout.fillWidth: true
            text: panel.view.limits.headline.text
            color: panel.view.limits.headline.color
            font.bold: true
            elide: Text.ElideRight
        }
        PlainText {
            text: panel.view.limits.headline.remaining
            color: panel.view.limits.headline.color
            font.bold: true
        }
    }
    PlainText {
        Layout.fillWidth: true
        visible: panel.view.limits.hasReadings && text.length > 0
        text: panel.view.limits.headline.detail
        font.pixelSize: 11
        color: palette.placeholderText
        wrapMode: Text.WordWrap
    }

    Repeater {
        model: panel.view.limitGroups
        delegate: ColumnLayout {
            id: group
            required property string heading
            required property string color
            required property var credits
            required property var rows
            Layout.fillWidth: true
            spacing: 4
            RowLayout {
                Layout.fillWidth: true
                Layout.topMargin: 4
                Rectangle { width: 8; height: 8; radius: 4; color: group.color }
                PlainText {
                    text: group.heading
                    font.bold: true
                    font.pixelSize: 11
                    color: palette.windowText
                }
                Item { Layout.fillWidth: true }
                ResetCreditBadge {
                    visible: group.credits.text.length > 0
                    credits: group.credits
                }
            }
            Repeater {
                model: group.rows
                delegate: ColumnLayout {
                    id: row
                    required property string windowName
                    required property string symbol
                    required property real fraction
                    required property string percent
                    required property string resets
                    required property string runOut
                    required property string runOutColor
                    required property bool stale
                    required property string help
                    Layout.fillWidth: true
                    spacing: 0
                    opacity: stale ? 0.45 : 1.0
                    RowLayout {
                        Layout.fillWidth: true
                        HelpTip { help: row.help }
                        RowLayout {
                            Layout.preferredWidth: 148
                            Layout.maximumWidth: 148
                            spacing: 4
                            SymbolIcon { source: row.symbol; size: 12 }
                            PlainText {
                                Layout.fillWidth: true
                                text: row.windowName
                                font.pixelSize: 11
                                elide: Text.ElideRight
                                color: palette.windowText
                            }
                        }
                        BurnRateBar {
                            Layout.fillWidth: true
                            fraction: row.fraction
                            tint: group.color
                            name: row.windowName + " " + row.percent
                            help: row.help
                        }
                        ColumnLayout {
                            spacing: 0
                            Layout.preferredWidth: 84
                            PlainText {
                                Layout.alignment: Qt.AlignRight
                                text: row.percent
                                font.pixelSize: 11
                                font.bold: true
                                color: palette.windowText
                            }
                            PlainText {
                                Layout.alignment: Qt.AlignRight
                                visible: text.length > 0
                                text: row.resets
                                font.pixelSize: 10
                                color: palette.placeholderText
                            }
                        }
                    }
                    // Wider than the figures' column, so it gets the row's width.
                    PlainText {
                        Layout.alignment: Qt.AlignRight
                        visible: text.length > 0
                        text: row.runOut
                        font.pixelSize: 10
                        color: row.runOutColor
                    }
                    Accessible.role: Accessible.Row
                    Accessible.name: windowName + " " + percent
                    Accessible.description: help
                }
            }
        }
    }

    // Unavailable form.
    RowLayout {
        Layout.fillWidth: true
        visible: !panel.view.limits.hasReadings
        SymbolIcon { source: panel.view.limits.unavailableSymbol; size: 16 }
        PlainText {
            text: panel.view.limits.unavailableHeading
            font.bold: true
            color: palette.windowText
        }
    }
    PlainText {
        Layout.fillWidth: true
        visible: !panel.view.limits.hasReadings
        text: panel.view.limits.unavailableText
        wrapMode: Text.WordWrap
        font.pixelSize: 11
        color: palette.windowText
    }
    Rectangle {
        Layout.fillWidth: true
        implicitHeight: 1
        color: palette.mid
        visible: credits.visible
    }
    RowLayout {
        id: credits
        Layout.fillWidth: true
        visible: !panel.view.limits.hasReadings
                 && panel.view.limits.unavailableCredits.text.length > 0
        PlainText {
            text: panel.view.limits.creditsLabel
            font.pixelSize: 11
            color: palette.windowText
        }
        Item { Layout.fillWidth: true }
        ResetCreditBadge { credits: panel.view.limits.unavailableCredits }
    }
}

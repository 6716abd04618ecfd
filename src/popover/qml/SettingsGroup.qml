import QtQuick
import QtQuick.Layouts
import QuonBrix

// "Settings & integrations": a header that opens the rows below it.
ColumnLayout {
    id: group
    required property PopoverView view
    spacing: 0

    Rectangle {
        id: toggle
        Layout.fillWidth: true
        implicitHeight: toggleRow.implicitHeight + 12
        radius: 6
        color: mouse.containsMouse ? palette.midlight : "transparent"
        border.width: activeFocus ? 2 : 0
        border.color: palette.highlight
        activeFocusOnTab: true
        Accessible.role: Accessible.Button
        Accessible.name: group.view.settings.title
        // Qt Quick 6.4 has no accessible value or expanded state for an item: screen readers
        // hear "Collapsed" or "Expanded" as the description, and the toggle as checked.
        Accessible.description: group.view.settingsExpanded ? group.view.settings.expandedValue
                                                            : group.view.settings.collapsedValue
        Accessible.checkable: true
        Accessible.checked: group.view.settingsExpanded
        Accessible.onPressAction: group.view.toggleSettings()
        Keys.onSpacePressed: group.view.toggleSettings()
        Keys.onReturnPressed: group.view.toggleSettings()

        RowLayout {
            id: toggleRow
            anchors.fill: parent
            anchors.margins: 6
            spacing: 8
            SymbolIcon {
                source: group.view.settings.symbol
                size: 12
                rotation: group.view.settingsExpanded ? 90 : 0
                Behavior on rotation { NumberAnimation { duration: 120 } }
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 1
                PlainText {
                    text: group.view.settings.title
                    font.bold: true
                    font.pixelSize: 12
                    color: palette.windowText
                }
                PlainText {
                    text: group.view.settings.subtitle
                    font.pixelSize: 11
                    color: palette.placeholderText
                }
            }
        }
        MouseArea {
            id: mouse
            anchors.fill: parent
            hoverEnabled: true
            onClicked: group.view.toggleSettings()
        }
        HelpTip { help: group.view.settings.help }
    }

    Repeater {
        model: group.view.settingsExpanded ? group.view.setupRows : null
        delegate: ColumnLayout {
            id: rowItem
            required property int index
            required property string action
            required property string symbol
            required property string title
            required property string detail
            required property string status
            required property string statusColor
            required property var button
            required property bool done
            required property string doneSymbol
            required property bool isSwitch
            required property bool on
            Layout.fillWidth: true
            Layout.topMargin: 4
            spacing: 4

            Rectangle {
                Layout.fillWidth: true
                visible: rowItem.index > 0
                implicitHeight: 1
                color: palette.mid
            }
            RowLayout {
                Layout.fillWidth: true
                spacing: 8
                SymbolIcon {
                    Layout.alignment: Qt.AlignTop
                    source: rowItem.symbol
                    size: 16
                }
                ColumnLayout {
                    Layout.fillWidth: true
                    spacing: 2
                    // A long status ("Version 1.10.0 is available") goes under the title
                    // rather than widening the popover.
                    Flow {
                        Layout.fillWidth: true
                        Layout.preferredWidth: 1
                        spacing: 6
                        PlainText {
                            text: rowItem.title
                            font.bold: true
                            font.pixelSize: 12
                            color: palette.windowText
                        }
                        PlainText {
                            visible: text.length > 0
                            text: rowItem.status
                            font.pixelSize: 11
                            color: rowItem.statusColor
                        }
                        SymbolIcon {
                            visible: rowItem.done
                            source: rowItem.doneSymbol
                            tint: "#2fa84f"
                            size: 12
                        }
                    }
                    PlainText {
                        Layout.fillWidth: true
                        text: rowItem.detail
                        wrapMode: Text.WordWrap
                        font.pixelSize: 11
                        color: palette.placeholderText
                    }
                }
                PlainSwitch {
                    Layout.alignment: Qt.AlignTop
                    visible: rowItem.isSwitch
                    checked: rowItem.on
                    name: rowItem.button.label
                    onToggled: group.view.setupAction(rowItem.action)
                }
                PlainButton {
                    Layout.alignment: Qt.AlignTop
                    visible: !rowItem.isSwitch
                    text: rowItem.button.label
                    help: rowItem.button.help
                    enabled: rowItem.button.enabled
                    fontSize: 11
                    Accessible.name: rowItem.title + ": " + rowItem.button.label
                    onClicked: group.view.setupAction(rowItem.action)
                }
            }
        }
    }
}

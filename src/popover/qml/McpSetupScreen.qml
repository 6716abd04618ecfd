import QtQuick
import QtQuick.Layouts
import QuonBrix

// "Connect your AI client": pick a client, copy its snippet or install it for every session.
SectionPanel {
    id: screen
    required property PopoverView view
    title: view.mcp.title

    PlainText {
        Layout.fillWidth: true
        text: screen.view.mcp.description
        wrapMode: Text.WordWrap
        font.pixelSize: 11
        color: palette.windowText
    }

    // The picker: one segment per client, with what its configuration holds now under it.
    RowLayout {
        Layout.fillWidth: true
        spacing: 4
        Accessible.role: Accessible.PageTabList
        Accessible.name: screen.view.mcp.pickerName
        Repeater {
            model: screen.view.mcpClients
            delegate: Rectangle {
                id: segment
                required property string client
                required property string name
                required property bool selected
                Layout.fillWidth: true
                implicitHeight: segmentText.implicitHeight + 10
                radius: 5
                color: selected ? palette.highlight
                       : segmentMouse.containsMouse ? palette.midlight : palette.button
                border.width: activeFocus ? 2 : 1
                border.color: activeFocus ? palette.highlight : palette.mid
                activeFocusOnTab: true
                Accessible.role: Accessible.PageTab
                Accessible.name: name
                Accessible.checkable: true
                Accessible.checked: selected
                Accessible.onPressAction: screen.view.selectMcpClient(client)
                Keys.onSpacePressed: screen.view.selectMcpClient(client)
                Keys.onReturnPressed: screen.view.selectMcpClient(client)
                PlainText {
                    id: segmentText
                    anchors.centerIn: parent
                    text: segment.name
                    font.pixelSize: 11
                    color: segment.selected ? palette.highlightedText : palette.buttonText
                }
                MouseArea {
                    id: segmentMouse
                    anchors.fill: parent
                    hoverEnabled: true
                    onClicked: screen.view.selectMcpClient(segment.client)
                }
            }
        }
    }

    // Each client's configuration as it stands, with "Update" where the entry is stale.
    Repeater {
        model: screen.view.mcpClients
        delegate: RowLayout {
            id: clientState
            required property string client
            required property string name
            required property string state
            required property string stateSymbol
            required property string stateColor
            required property var update
            required property bool showUpdate
            Layout.fillWidth: true
            visible: state.length > 0
            spacing: 6
            PlainText {
                Layout.preferredWidth: 96
                text: clientState.name
                font.pixelSize: 11
                color: palette.windowText
            }
            SymbolIcon {
                source: clientState.stateSymbol
                tint: clientState.stateColor
                size: 12
            }
            PlainText {
                Layout.fillWidth: true
                text: clientState.state
                wrapMode: Text.WordWrap
                font.pixelSize: 11
                color: clientState.stateColor
            }
            PlainButton {
                visible: clientState.showUpdate
                text: clientState.update.label
                help: clientState.update.help
                enabled: clientState.update.enabled
                fontSize: 11
                Accessible.name: clientState.name + ": " + clientState.update.label
                onClicked: screen.view.installMcpClient(clientState.client)
            }
        }
    }

    // The snippet, selectable, with its copy button.
    Rectangle {
        Layout.fillWidth: true
        implicitHeight: snippetText.implicitHeight + 12
        radius: 5
        color: palette.base
        border.width: 1
        border.color: palette.mid
        TextEdit {
            id: snippetText
            anchors.fill: parent
            anchors.margins: 6
            text: screen.view.mcp.snippet
            readOnly: true
            selectByMouse: true
            wrapMode: TextEdit.WrapAnywhere
            font.family: "monospace"
            font.pixelSize: 10
            color: palette.text
            activeFocusOnTab: true
            Accessible.role: Accessible.EditableText
            Accessible.name: screen.view.mcp.snippetHint
            Accessible.readOnly: true
        }
    }
    RowLayout {
        Layout.fillWidth: true
        PlainText {
            Layout.fillWidth: true
            text: screen.view.mcp.snippetHint
            wrapMode: Text.WordWrap
            font.pixelSize: 10
            color: palette.placeholderText
        }
        PlainButton {
            Layout.alignment: Qt.AlignTop
            text: screen.view.mcp.copy.label
            symbol: screen.view.mcp.copy.symbol
            fontSize: 11
            onClicked: screen.view.copyMcpSnippet()
        }
    }

    PlainButton {
        text: screen.view.mcp.install.label
        symbol: screen.view.mcp.install.symbol
        enabled: screen.view.mcp.install.enabled
        prominent: true
        fontSize: 11
        onClicked: screen.view.installMcpClient(screen.view.mcp.selectedClient)
    }
    PlainText {
        Layout.fillWidth: true
        text: screen.view.mcp.installHint
        wrapMode: Text.WordWrap
        font.pixelSize: 10
        color: palette.placeholderText
    }
    PlainText {
        Layout.fillWidth: true
        visible: text.length > 0
        text: screen.view.mcp.waitingText
        wrapMode: Text.WordWrap
        font.pixelSize: 11
        color: palette.windowText
    }
    RowLayout {
        Layout.fillWidth: true
        visible: screen.view.mcp.result.length > 0
        SymbolIcon {
            Layout.alignment: Qt.AlignTop
            source: screen.view.mcp.resultSymbol
            tint: screen.view.mcp.resultColor
            size: 14
        }
        PlainText {
            Layout.fillWidth: true
            text: screen.view.mcp.result
            wrapMode: Text.WrapAtWordBoundaryOrAnywhere
            font.pixelSize: 11
            color: screen.view.mcp.resultColor
        }
    }
}

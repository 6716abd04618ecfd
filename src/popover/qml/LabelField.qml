import QtQuick

// A one-line text field with a placeholder.
Rectangle {
    id: field
    property alias text: input.text
    property string placeholder
    signal accepted()

    function clear() { input.clear() }

    implicitWidth: 120
    implicitHeight: input.implicitHeight + 12
    radius: 4
    color: palette.base
    border.width: input.activeFocus ? 2 : 1
    border.color: input.activeFocus ? palette.highlight : palette.mid

    TextInput {
        id: input
        anchors.fill: parent
        anchors.margins: 6
        verticalAlignment: TextInput.AlignVCenter
        clip: true
        color: palette.text
        selectByMouse: true
        activeFocusOnTab: true
        onAccepted: field.accepted()
        Accessible.role: Accessible.EditableText
        Accessible.name: field.placeholder
    }
    PlainText {
        anchors.fill: input
        verticalAlignment: Text.AlignVCenter
        visible: input.text.length === 0
        text: field.placeholder
        font: input.font
        color: palette.placeholderText
    }
}

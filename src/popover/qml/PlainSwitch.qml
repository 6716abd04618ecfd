import QtQuick

// An on/off switch of plain Qt Quick items, keyboard-operable and read out as a checkable
// button with its state.
Rectangle {
    id: toggle
    property bool checked: false
    property string name
    signal toggled()

    implicitWidth: 34
    implicitHeight: 18
    radius: height / 2
    color: checked ? palette.highlight : palette.mid
    border.width: activeFocus ? 2 : 0
    border.color: palette.highlightedText
    activeFocusOnTab: true
    Accessible.role: Accessible.CheckBox
    Accessible.ignored: !visible
    Accessible.name: name
    Accessible.checkable: true
    Accessible.checked: checked
    Accessible.onPressAction: toggle.toggled()
    Accessible.onToggleAction: toggle.toggled()
    Keys.onSpacePressed: toggle.toggled()
    Keys.onReturnPressed: toggle.toggled()

    Rectangle {
        width: parent.height - 4
        height: width
        radius: width / 2
        y: 2
        x: toggle.checked ? parent.width - width - 2 : 2
        color: "white"
        Behavior on x { NumberAnimation { duration: 100 } }
    }
    MouseArea {
        anchors.fill: parent
        onClicked: toggle.toggled()
    }
}

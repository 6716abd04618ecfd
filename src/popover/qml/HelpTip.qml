import QtQuick

// Put inside an item: shows `help` in the popover's help bubble while the pointer is on it.
HoverHandler {
    property string help
    onHoveredChanged: HelpTips.hover(parent, help, hovered)
}

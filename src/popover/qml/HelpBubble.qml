import QtQuick

// The help bubble, drawn over everything at the window's top level, under the item the
// pointer rests on (or above it near the bottom edge), kept inside the window.
Rectangle {
    id: bubble
    readonly property Item target: HelpTips.target
    readonly property point anchor: target ? target.mapToItem(parent, 0, target.height)
                                           : Qt.point(0, 0)

    visible: target !== null && target.visible && HelpTips.text.length > 0
    z: 1000
    width: Math.min(caption.implicitWidth + 12, parent.width - 16)
    height: caption.implicitHeight + 8
    x: Math.max(8, Math.min(anchor.x, parent.width - width - 8))
    y: anchor.y + 4 + height <= parent.height ? anchor.y + 4
                                             : anchor.y - (target ? target.height : 0) - height - 4
    radius: 4
    color: palette.toolTipBase
    border.color: palette.mid

    PlainText {
        id: caption
        anchors.fill: parent
        anchors.margins: 4
        text: HelpTips.text
        wrapMode: Text.Wrap
        font.pixelSize: 11
        color: palette.toolTipText
    }
}

import QtQuick

// A button of plain Qt Quick items: a symbol, a caption or both (the caption under the symbol
// for footer commands), keyboard-operable and named for screen readers.
Rectangle {
    id: button
    property string text
    property string symbol
    property string help
    property bool showText: true
    property bool captionUnder: false
    property bool flat: false
    // The one action the screen suggests: filled with the highlight colour.
    property bool prominent: false
    // A button that ends something for good (sign out): red.
    property bool destructive: false
    property int symbolSize: 14
    property int fontSize: 12
    signal clicked()

    implicitWidth: content.implicitWidth + (flat ? 8 : 16)
    implicitHeight: content.implicitHeight + 8
    radius: 5
    opacity: enabled ? 1.0 : 0.4
    color: destructive ? (mouse.pressed ? Qt.darker("#e0342b", 1.2) : "#e0342b")
           : prominent ? (mouse.pressed ? Qt.darker(palette.highlight, 1.2) : palette.highlight)
           : mouse.pressed ? palette.mid
           : mouse.containsMouse ? palette.midlight
           : flat ? "transparent" : palette.button
    border.width: activeFocus ? 2 : flat ? 0 : 1
    border.color: activeFocus ? palette.highlight : palette.mid
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    // Hidden buttons (another screen's, a closed panel's) are not read out.
    Accessible.ignored: !visible
    Accessible.name: text
    Accessible.description: help
    Accessible.onPressAction: button.clicked()
    Keys.onSpacePressed: button.clicked()
    Keys.onReturnPressed: button.clicked()
    Keys.onEnterPressed: button.clicked()

    Grid {
        id: content
        anchors.centerIn: parent
        columns: button.captionUnder ? 1 : 2
        spacing: button.captionUnder ? 2 : 4
        horizontalItemAlignment: Grid.AlignHCenter
        verticalItemAlignment: Grid.AlignVCenter
        SymbolIcon {
            visible: button.symbol.length > 0
            source: button.symbol
            tint: button.destructive ? "white"
                  : button.prominent ? palette.highlightedText : palette.buttonText
            size: button.symbolSize
        }
        PlainText {
            visible: button.showText && text.length > 0
            text: button.text
            font.pixelSize: button.fontSize
            color: button.destructive ? "white"
                   : button.prominent ? palette.highlightedText : palette.buttonText
        }
    }
    MouseArea {
        id: mouse
        anchors.fill: parent
        hoverEnabled: true
        onClicked: button.clicked()
    }
    HelpTip { help: button.help }
}

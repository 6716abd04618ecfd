import QtQuick

// A capsule bar: a track and a fill of `fraction` (0…1) in `tint`.
Rectangle {
    id: bar
    property real fraction: 0
    property color tint: palette.highlight
    property string help
    // What a screen reader calls the bar, with its figure ("Weekly 41%", "Claude 76%"): Qt Quick
    // 6.4 offers an item no value interface of its own, so the figure is said in the name.
    property string name
    // Read by the accessibility bridge as the bar's value and range.
    readonly property real value: Math.round(fraction * 100)
    readonly property real minimumValue: 0
    readonly property real maximumValue: 100

    implicitHeight: 8
    radius: height / 2
    color: Qt.rgba(palette.text.r, palette.text.g, palette.text.b, 0.12)
    Accessible.role: Accessible.ProgressBar
    Accessible.name: name
    Accessible.description: help

    Rectangle {
        width: parent.width * bar.fraction
        height: parent.height
        radius: height / 2
        color: bar.tint
    }
}

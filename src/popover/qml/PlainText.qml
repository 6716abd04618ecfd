import QtQuick

// The screens' text: read out only while it is on screen (a hidden loading line or empty
// hint stays out of what a screen reader walks).
Text {
    Accessible.ignored: !visible
}

pragma Singleton
import QtQuick

// The one help text on screen: what the pointer rests on and what it says.
QtObject {
    property Item target: null
    property string text

    function hover(item, help, hovered) {
        if (hovered) {
            text = help
            target = item
        } else if (target === item) {
            target = null
        }
    }
}

import QtQuick

// A turning refresh symbol, for "still starting".
SymbolIcon {
    id: spinner
    source: "image://symbol/arrow.triangle.2.circlepath"
    size: 18
    RotationAnimator on rotation {
        from: 0
        to: 360
        duration: 1200
        loops: Animation.Infinite
        running: spinner.visible
    }
}

import QtQuick
import QtQuick.Layouts
import QuonBrix

// The question before signing out, over a dimmed popover; a click beside it says no.
Rectangle {
    id: overlay
    required property PopoverView view
    color: Qt.rgba(0, 0, 0, 0.35)

    MouseArea {
        anchors.fill: parent
        onClicked: overlay.view.cancelSignOut()
    }

    Rectangle {
        anchors.centerIn: parent
        width: parent.width - 48
        height: card.implicitHeight + 32
        radius: 10
        color: palette.window
        Accessible.role: Accessible.Dialog
        Accessible.name: overlay.view.signOut.title

        // Clicks on the card stay on the card.
        MouseArea { anchors.fill: parent }

        ColumnLayout {
            id: card
            anchors.fill: parent
            anchors.margins: 16
            spacing: 10
            PlainText {
                Layout.fillWidth: true
                text: overlay.view.signOut.title
                font.bold: true
                font.pixelSize: 14
                wrapMode: Text.WordWrap
                color: palette.windowText
            }
            PlainText {
                Layout.fillWidth: true
                text: overlay.view.signOut.text
                font.pixelSize: 12
                wrapMode: Text.WordWrap
                color: palette.windowText
            }
            RowLayout {
                Layout.alignment: Qt.AlignRight
                PlainButton {
                    text: overlay.view.signOut.cancel
                    onClicked: overlay.view.cancelSignOut()
                }
                PlainButton {
                    text: overlay.view.signOut.confirm
                    destructive: true
                    onClicked: overlay.view.confirmSignOut()
                }
            }
        }
    }
}

import QtQuick
import QtQuick.Layouts
import QuonBrix

RowLayout {
    id: header
    required property PopoverView view
    spacing: 10

    QuonBrixMark {
        Layout.preferredWidth: 34
        Layout.preferredHeight: 34
    }

    ColumnLayout {
        Layout.fillWidth: true
        spacing: 2
        RowLayout {
            spacing: 6
            PlainText {
                text: header.view.header.title
                font.bold: true
                font.pixelSize: 15
                color: palette.windowText
            }
            StatusPill {
                text: header.view.header.statusPill
            }
        }
        PlainText {
            Layout.fillWidth: true
            text: header.view.header.subtitle
            wrapMode: Text.WordWrap
            maximumLineCount: 2
            elide: Text.ElideRight
            font.pixelSize: 11
            color: palette.placeholderText
        }
    }

    // "Sign in" over "Update now": side by side they do not fit beside the title.
    ColumnLayout {
        Layout.alignment: Qt.AlignTop
        spacing: 4
        PlainButton {
            Layout.fillWidth: true
            visible: header.view.screen !== "main"
            text: header.view.header.back.label
            symbol: header.view.header.back.symbol
            fontSize: 11
            onClicked: header.view.back()
        }
        PlainButton {
            Layout.fillWidth: true
            visible: header.view.screen === "main" && header.view.header.showSignIn
            text: header.view.header.signIn.label
            symbol: header.view.header.signIn.symbol
            help: header.view.header.signIn.help
            enabled: header.view.header.signIn.enabled
            prominent: true
            fontSize: 11
            onClicked: header.view.startSignIn()
        }
        PlainButton {
            Layout.fillWidth: true
            visible: header.view.screen === "main"
            text: header.view.header.update.label
            symbol: header.view.header.update.symbol
            help: header.view.header.update.help
            enabled: header.view.header.update.enabled
            fontSize: 11
            onClicked: header.view.syncNow()
        }
    }
}

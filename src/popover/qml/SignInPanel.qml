import QtQuick
import QtQuick.Layouts
import QuonBrix

// A sign-in on its way: waiting for the code, the code to confirm in the browser, or why it
// failed (with the terminal way round a network that inspects secure traffic).
SectionPanel {
    id: panel
    required property PopoverView view
    readonly property var signIn: view.signIn

    RowLayout {
        visible: panel.signIn.waiting
        Spinner {}
    }

    // The code.
    PlainText {
        Layout.fillWidth: true
        visible: panel.signIn.userCode.length > 0
        text: panel.signIn.promptText
        wrapMode: Text.WordWrap
        font.pixelSize: 11
        color: palette.windowText
    }
    TextEdit {
        Layout.fillWidth: true
        visible: panel.signIn.userCode.length > 0
        text: panel.signIn.userCode
        readOnly: true
        selectByMouse: true
        horizontalAlignment: TextEdit.AlignHCenter
        font.family: "monospace"
        font.pixelSize: 24
        font.bold: true
        color: palette.windowText
        selectionColor: palette.highlight
        selectedTextColor: palette.highlightedText
        activeFocusOnTab: true
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
    RowLayout {
        visible: panel.signIn.userCode.length > 0
        PlainButton {
            text: panel.signIn.openPage.label
            symbol: panel.signIn.openPage.symbol
            prominent: true
            onClicked: panel.view.openApprovalPage()
        }
        PlainButton {
            text: panel.signIn.again.label
            help: panel.signIn.again.help
            onClicked: panel.view.startSignIn()
        }
    }

    // The failure.
    RowLayout {
        visible: panel.signIn.errorTitle.length > 0
        SymbolIcon { source: panel.signIn.errorSymbol; size: 16 }
        PlainText {
            text: panel.signIn.errorTitle
            font.bold: true
            color: palette.windowText
        }
    }
    TextEdit {
        Layout.fillWidth: true
        visible: panel.signIn.errorTitle.length > 0
        text: panel.signIn.errorText
        readOnly: true
        selectByMouse: true
        wrapMode: TextEdit.Wrap
        font.pixelSize: 11
        color: palette.windowText
    }
    PlainText {
        Layout.fillWidth: true
        visible: panel.signIn.terminalText.length > 0
        text: panel.signIn.terminalText
        wrapMode: Text.WordWrap
        font.pixelSize: 11
        color: palette.windowText
    }
    PlainButton {
        visible: panel.signIn.terminalText.length > 0
        text: panel.signIn.copyCommand.label
        symbol: panel.signIn.copyCommand.symbol
        onClicked: panel.view.copySignInCommand()
    }
    PlainText {
        Layout.fillWidth: true
        visible: panel.signIn.terminalText.length > 0
        text: panel.signIn.terminalNote
        wrapMode: Text.WordWrap
        font.pixelSize: 10
        color: palette.placeholderText
    }
    PlainButton {
        visible: panel.signIn.errorTitle.length > 0
        text: panel.signIn.retry.label
        onClicked: panel.view.startSignIn()
    }
}

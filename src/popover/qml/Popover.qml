import QtQuick
import QtQuick.Layouts
import QuonBrix

// The tray popover. Layout only: every text and every decision comes from the tray, through
// PopoverView.
Window {
    id: root
    required property PopoverView view

    width: 360
    readonly property bool mainContent: root.view.screen === "main" && !root.view.header.loading
    // Header and footer always show; only the panels between them scroll, when the window is
    // held to the screen's height (the app sets the limit).
    // The height the content asks for; the app gives the window as much of it as the screen
    // has room for.
    property int wantedHeight: top.implicitHeight + panels.implicitHeight + bottom.implicitHeight
                               + 24 + 20
    color: palette.window

    Shortcut {
        sequence: StandardKey.Cancel
        onActivated: root.view.escape()
    }

    Connections {
        target: root.view
        function onScrolledToTop() { flick.contentY = 0 }
    }

    ColumnLayout {
        id: top
        x: 12
        y: 12
        width: root.width - 24
        spacing: 10

        PopoverHeader {
            Layout.fillWidth: true
            view: root.view
        }

        SignInPanel {
            Layout.fillWidth: true
            visible: root.view.signIn.shown
            view: root.view
        }

        RowLayout {
            Layout.fillWidth: true
            visible: root.view.header.condition.length > 0
            spacing: 6
            SymbolIcon {
                Layout.alignment: Qt.AlignTop
                source: root.view.header.conditionSymbol
                tint: root.view.header.conditionColor
                size: 14
            }
            PlainText {
                Layout.fillWidth: true
                text: root.view.header.condition
                wrapMode: Text.WordWrap
                font.pixelSize: 12
                color: palette.windowText
            }
        }

        PlainText {
            Layout.fillWidth: true
            visible: text.length > 0
            text: root.view.header.trayHint
            wrapMode: Text.WordWrap
            font.pixelSize: 11
            color: palette.placeholderText
        }
    }

    Flickable {
        id: flick
        x: 0
        y: top.y + top.height + 10
        width: root.width
        height: bottom.y - 10 - y
        contentHeight: panels.implicitHeight
        boundsBehavior: Flickable.StopAtBounds
        clip: true

        ColumnLayout {
            id: panels
            x: 12
            width: flick.width - 24
            spacing: 10

            RowLayout {
                Layout.fillWidth: true
                Layout.topMargin: 16
                Layout.bottomMargin: 16
                visible: root.view.screen === "main" && root.view.header.loading
                         && root.view.header.condition.length === 0
                spacing: 8
                Spinner {}
                PlainText {
                    text: root.view.header.loadingText
                    color: palette.windowText
                }
            }

            LimitsPanel {
                Layout.fillWidth: true
                visible: root.mainContent
                view: root.view
            }

            TodayPanel {
                Layout.fillWidth: true
                visible: root.mainContent
                view: root.view
            }

            WorkPanel {
                Layout.fillWidth: true
                visible: root.mainContent
                view: root.view
            }

            ProjectsPanel {
                Layout.fillWidth: true
                visible: root.mainContent
                view: root.view
            }

            SharingPanel {
                Layout.fillWidth: true
                visible: root.mainContent && root.view.sharing.shown
                view: root.view
            }

            SettingsGroup {
                Layout.fillWidth: true
                visible: root.mainContent
                view: root.view
            }

            // The other screens exist only while shown: laid out while hidden, the guide's
            // Japanese alone would load a CJK font into every popover.
            Loader {
                Layout.fillWidth: true
                active: root.view.screen === "mcp"
                visible: active
                sourceComponent: Component {
                    McpSetupScreen { view: root.view }
                }
            }

            Loader {
                Layout.fillWidth: true
                active: root.view.screen === "guide"
                visible: active
                sourceComponent: Component {
                    SetupGuideScreen { view: root.view }
                }
            }

        }
    }

    // Where the panels stand when they do not all fit.
    Rectangle {
        anchors.right: parent.right
        anchors.rightMargin: 2
        y: flick.y + flick.visibleArea.yPosition * flick.height
        width: 5
        height: flick.visibleArea.heightRatio * flick.height
        radius: 2
        color: palette.dark
        opacity: 0.7
        visible: flick.visibleArea.heightRatio < 1
        Accessible.ignored: true
    }

    PopoverFooter {
        id: bottom
        x: 12
        y: root.height - height - 8
        width: root.width - 24
        view: root.view
    }

    Loader {
        anchors.fill: parent
        active: root.view.confirmingSignOut
        sourceComponent: Component {
            SignOutOverlay { view: root.view }
        }
    }

    HelpBubble {}
}

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
    height: content.implicitHeight + 24
    color: palette.window

    // Scrolls when the window is held to the screen's height (the app sets the limit).
    Flickable {
        id: flick
        anchors.fill: parent
        contentHeight: content.implicitHeight + 24
        boundsBehavior: Flickable.StopAtBounds
        clip: true

        ColumnLayout {
            id: content
            x: 12
            y: 12
            width: flick.width - 24
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

            Text {
                Layout.fillWidth: true
                visible: text.length > 0
                text: root.view.header.trayHint
                wrapMode: Text.WordWrap
                font.pixelSize: 11
                color: palette.placeholderText
            }

            RowLayout {
                Layout.fillWidth: true
                Layout.topMargin: 16
                Layout.bottomMargin: 16
                visible: root.view.screen === "main" && root.view.header.loading
                spacing: 8
                Spinner {}
                Text {
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

            PopoverFooter {
                Layout.fillWidth: true
                view: root.view
            }
        }
    }

    // Where the panels stand when they do not all fit.
    Rectangle {
        anchors.right: parent.right
        anchors.rightMargin: 2
        y: flick.visibleArea.yPosition * flick.height
        width: 4
        height: flick.visibleArea.heightRatio * flick.height
        radius: 2
        color: palette.mid
        visible: flick.visibleArea.heightRatio < 1
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

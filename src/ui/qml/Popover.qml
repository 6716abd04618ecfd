import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QuonBrix

// The tray popover. Layout only: every text and every decision comes from PopoverModel.
Window {
    id: root
    required property PopoverModel model

    width: 360
    height: content.implicitHeight + 24
    color: palette.window

    // Scrolls when the window is held to the screen's height (the app sets the limit).
    Flickable {
        id: flick
        anchors.fill: parent
        contentHeight: content.implicitHeight + 24
        boundsBehavior: Flickable.StopAtBounds
        clip: true
        ScrollBar.vertical: ScrollBar {}

    ColumnLayout {
        id: content
        x: 12
        y: 12
        width: flick.width - 24
        spacing: 10

        PopoverHeader {
            Layout.fillWidth: true
            model: root.model
        }

        Label {
            Layout.fillWidth: true
            visible: root.model.trayHint.length > 0
            text: root.model.trayHint
            wrapMode: Text.WordWrap
            font.pixelSize: 11
            color: palette.placeholderText
        }

        RowLayout {
            Layout.fillWidth: true
            Layout.topMargin: 16
            Layout.bottomMargin: 16
            visible: root.model.loading
            spacing: 8
            BusyIndicator {
                running: root.model.loading
                Layout.preferredWidth: 20
                Layout.preferredHeight: 20
            }
            Label {
                text: root.model.loadingText
            }
        }

        LimitsPanel {
            Layout.fillWidth: true
            visible: !root.model.loading
            model: root.model
        }

        TodayPanel {
            Layout.fillWidth: true
            visible: !root.model.loading
            model: root.model
        }

        WorkPanel {
            Layout.fillWidth: true
            visible: !root.model.loading
            work: root.model.work
        }

        ProjectsPanel {
            Layout.fillWidth: true
            visible: !root.model.loading
            work: root.model.work
        }

        SharingPanel {
            Layout.fillWidth: true
            visible: !root.model.loading && root.model.work.showSharing
            work: root.model.work
        }

        PopoverFooter {
            Layout.fillWidth: true
            model: root.model
        }
    }
    }
}

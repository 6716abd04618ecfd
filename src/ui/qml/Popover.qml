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

    ColumnLayout {
        id: content
        anchors.fill: parent
        anchors.margins: 12
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

        PopoverFooter {
            Layout.fillWidth: true
            model: root.model
        }
    }
}

// The notes of the service in a window: read, added, deleted, and followed as they change.
import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import KVLocal

ApplicationWindow {
    id: window
    property var form  // the one that adds a note

    function reload() {
        if (session.established) session.fetch("/notes", show)
    }
    function show(good, document, text) {
        message.text = good ? "" : text
        if (!good) return
        form = document.form
        list.model = document.notes
    }
    function add() {
        form.inputs[0].value = field.text
        session.send(form, (good, note, text) => good ? field.clear() : message.text = text)
    }

    title: qsTr("Notes")
    width: 400; height: 300; visible: true

    Session {
        id: session
        eventSource: "/feed"
        onStateChanged: window.reload()
        onEventsReceived: window.reload()
        onFailed: text => message.text = text
    }

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            enabled: session.established && window.form !== undefined
            Image { source: session.established ? "image://kvlocal/image?format=png?16" : "" }
            TextField {
                id: field
                Layout.fillWidth: true
                Accessible.name: qsTr("New note")
                focus: true
                onAccepted: window.add()
            }
            Button { text: qsTr("Add"); onClicked: window.add() }
        }
    }
    ListView {
        id: list
        anchors.fill: parent
        delegate: RowLayout {
            required property var modelData
            width: list.width
            Label {
                text: parent.modelData.text
                textFormat: Text.PlainText
                elide: Text.ElideRight
                Layout.fillWidth: true
                Layout.margins: 6
            }
            Button { text: qsTr("Delete"); onClicked: session.send(parent.modelData.form) }
        }
    }
    footer: Label { id: message; padding: 6; textFormat: Text.PlainText; elide: Text.ElideRight }
}

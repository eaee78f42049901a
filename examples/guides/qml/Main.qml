import QtQuick
import QtQuick.Controls
import KVLocal

ApplicationWindow {
    id: window

    function reload() {
        if (session.established) session.fetch("/notes", showNotes)
    }
    function showNotes(good, document, text) {
        message.text = good ? "" : text
        if (good) list.model = document.notes
    }
    function add(text) {
        session.submit("/notes", { text: text }, (good, note, text) => {
            if (good) field.clear()
            else message.text = text
        })
    }

    title: qsTr("Notes (%1)").arg(session.stateText)
    width: 400; height: 300; visible: true

    Session {
        id: session
        eventSource: "/feed"
        onStateChanged: window.reload()
        onEventsReceived: window.reload()
        onFailed: text => message.text = text
    }

    ListView {
        id: list
        anchors.fill: parent
        delegate: Label {
            required property var modelData
            text: modelData.text
            textFormat: Text.PlainText
            padding: 6
        }
    }
    footer: Column {
        TextField {
            id: field
            width: parent.width
            placeholderText: qsTr("New note")
            enabled: session.established
            focus: true
            onAccepted: window.add(text)
        }
        Label { id: message; padding: 6; textFormat: Text.PlainText }
    }

    // For a try without a screen: adds the note in the argument and closes the window when it is listed.
    readonly property string given: Qt.application.arguments[1] ?? ""
    Connections {
        target: session
        enabled: window.given !== ""
        function onStateChanged() { if (session.established) window.add(window.given) }
    }
    Connections {
        target: list
        enabled: window.given !== ""
        function onCountChanged() {
            if (list.count === 0 || !window.visible) return
            console.log(list.model[list.count - 1].text)
            window.close()
        }
    }
}

import QtQuick

// Hosts the playback backend's picture: the item made in C++ is placed inside and fills the host.
Item {
    id: host

    required property Item videoView

    function attach() {
        if (!videoView)
            return
        videoView.parent = host
        videoView.anchors.fill = host
    }

    onVideoViewChanged: attach()
    Component.onCompleted: attach()
}

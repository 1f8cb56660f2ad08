# CPack: a Debian package of what `cmake --install` installs. Shared-library dependencies come from
# dpkg-shlibdeps; what the program loads at run time (QML modules, Qt and GStreamer plugins) is
# named here by its Debian package.
# Installing (and packing) must not build every test and benchmark first: scripts/package builds
# the player itself.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(CPACK_PACKAGE_NAME quorvane-player)
set(CPACK_PACKAGE_VENDOR "Quorvane")
set(CPACK_PACKAGE_CONTACT "Quorvane Player developers <player@quorvane.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Local video and audio player")
set(CPACK_PACKAGE_DESCRIPTION
    "Plays the video and audio files on your computer. Matroska, WebM and FLV files play\n\
without conversion, beside everything GStreamer opens. Media keys work through MPRIS.")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${QV_BUILD_NUMBER})
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(QV_DEBIAN_RUNTIME_PACKAGES
  qt6-qpa-plugins
  qml6-module-qtqml qml6-module-qtqml-workerscript qml6-module-qtquick
  qml6-module-qtquick-controls qml6-module-qtquick-templates qml6-module-qtquick-layouts
  qml6-module-qtquick-dialogs qml6-module-qtquick-window qml6-module-qtquick-shapes
  qml6-module-qtmultimedia qml6-module-qtwebengine qml6-module-qtwebchannel
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-libav gstreamer1.0-gl)
string(REPLACE ";" ", " CPACK_DEBIAN_PACKAGE_DEPENDS "${QV_DEBIAN_RUNTIME_PACKAGES}")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gstreamer1.0-plugins-bad, dbus-user-session")

include(CPack)

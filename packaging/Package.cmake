# The Debian package: `cpack -G DEB` in a build configured for /usr, which scripts/package does.
#
# Everything `cmake --install` puts in place goes into the package, at the paths the install
# manifest lists; the maintainer scripts in packaging/deb register the helper daemon with systemd
# and the bus. Installed in another root (dpkg --root), they touch nothing of the running system.

include(GNUInstallDirs)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillane)
set(CPACK_PACKAGE_VENDOR Velmoric)
set(CPACK_PACKAGE_CONTACT "Velmoric <support@velmoric.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "empty the trash of one drive at a time")
set(CPACK_PACKAGE_DESCRIPTION
    "Quillane is a tray utility that lists the trash of every location of the\n\
computer (the home folder, each mounted volume, cloud-storage folders) with its\n\
item count and size, and empties one at a time. Items the user cannot remove go\n\
to its helper daemon on the system bus, after an administrator approves through\n\
polkit.")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://quillane.velmoric.com")
# The install rules name absolute folders (the systemd unit may go to /lib/systemd/system), so the
# package is staged with DESTDIR below the prefix the build was configured for.
set(CPACK_SET_DESTDIR ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT) # quillane_VERSION_amd64.deb
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${CPACK_PACKAGE_CONTACT}")
# The shared libraries the programs link (the Qt 6 libraries) come from dpkg-shlibdeps; what is
# loaded at run time is named here: Qt's SVG plugins for the icons (in libqt6svg6 on Debian 12;
# the X11 platform plugin comes with libqt6gui6), GStreamer's plugins for the sound (the AIFF
# parser is in -bad), the system bus and polkit for the helper daemon. The command line plays its
# sound with the sound server's own player.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "libqt6svg6, gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, \
gstreamer1.0-plugins-bad, dbus, polkitd")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "adwaita-icon-theme, qt6-wayland, qt6-translations-l10n, packagekit, \
pipewire-bin | pulseaudio-utils")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/deb/postinst ${CMAKE_CURRENT_LIST_DIR}/deb/prerm
    ${CMAKE_CURRENT_LIST_DIR}/deb/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# What Debian asks of every package: the copyright file, and the changelog compressed as
# dpkg-deb would do it (no name or time stamp in the gzip header, so builds are reproducible).
string(TIMESTAMP QUILLANE_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${CMAKE_CURRENT_LIST_DIR}/deb/changelog ${CMAKE_CURRENT_BINARY_DIR}/changelog @ONLY)
add_custom_command(
    OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    COMMAND gzip -9nc ${CMAKE_CURRENT_BINARY_DIR}/changelog > ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog
    VERBATIM)
add_custom_target(quillane_package_changelog ALL DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/deb/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/quillane)

include(CPack)

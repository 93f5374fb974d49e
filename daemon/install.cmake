# Install rules of the helper daemon and of what lets the system run it: its systemd unit, its
# bus policy and activation file, its polkit actions, and the manifest of this installation's
# files that the daemon's uninstall operation reads.
#
# Included from daemon/CMakeLists.txt after the quillane-daemon target is defined.
#
#   <libexecdir>/quillane-daemon
#   <QUILLANE_SYSTEMD_UNIT_DIR>/quillane-daemon.service
#   <datadir>/dbus-1/system.d/<bus name>.conf
#   <datadir>/dbus-1/system-services/<bus name>.service
#   <datadir>/polkit-1/actions/<polkit actions file>
#
# The bus name and the polkit actions file are QUILLANE_DAEMON_BUS_NAME and
# QUILLANE_POLKIT_ACTIONS_FILE, which daemon/dbus/contract.cmake reads from BusNames.h; the files
# under daemon/ are named after them.
#   <datadir>/quillane/install-manifest.txt
#
# The bus reads its policy and activation files, and polkit its actions, under /usr/share
# only, so a working installation uses the prefix /usr.
#
# The unit, the activation file and the manifest are written at install time
# (install-unit.cmake), not at configure time: they name installed paths, and `cmake --install
# --prefix` may choose another prefix than the one the build was configured with. DESTDIR is a
# staging folder and appears in neither.
#
# The manifest holds one absolute path a line: every file that this `cmake --install` put in
# place, whichever part of the project installed it, in installation order, ending with the
# manifest itself. Folders are not listed.

include_guard(GLOBAL)
include(GNUInstallDirs)

set(QUILLANE_SYSTEMD_UNIT_DIR "lib/systemd/system" CACHE STRING
    "Where the helper daemon's systemd unit is installed, relative to the install prefix")

if(TARGET quillane-daemon)
    install(TARGETS quillane-daemon RUNTIME DESTINATION ${CMAKE_INSTALL_LIBEXECDIR})
endif()

install(FILES ${CMAKE_CURRENT_LIST_DIR}/dbus/${QUILLANE_DAEMON_BUS_NAME}.conf
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/system.d)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/polkit/${QUILLANE_POLKIT_ACTIONS_FILE}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/polkit-1/actions)

# The unit, the activation file and the manifest, installed by install-unit.cmake. The top-level
# CMakeLists.txt calls this after every other install rule of the project, so that the manifest
# sees every installed file.
function(quillane_install_unit_and_manifest)
    set(here ${CMAKE_CURRENT_FUNCTION_LIST_DIR})
    install(CODE "
# In a scope of its own, but what it installs joins CMake's own list of installed files.
block(PROPAGATE CMAKE_INSTALL_MANIFEST_FILES)
set(template [[${here}/systemd/quillane-daemon.service.in]])
set(activation_template [[${here}/dbus/${QUILLANE_DAEMON_BUS_NAME}.service.in]])
set(QUILLANE_DAEMON_BUS_NAME [[${QUILLANE_DAEMON_BUS_NAME}]])
set(work_dir [[${CMAKE_CURRENT_BINARY_DIR}/daemon-install]])
set(full_unit_dir [[${QUILLANE_SYSTEMD_UNIT_DIR}]])
set(full_bin_dir [[${CMAKE_INSTALL_BINDIR}]])
set(full_libexec_dir [[${CMAKE_INSTALL_LIBEXECDIR}]])
set(full_data_dir [[${CMAKE_INSTALL_DATADIR}]])
include([[${here}/install-unit.cmake]])
endblock()")
endfunction()

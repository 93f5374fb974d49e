# Install rules of the helper daemon and of what lets the system run it: its systemd unit, its
# bus policy and activation file, its polkit actions, and the manifest of this installation's
# files that the daemon's uninstall operation reads.
#
# Included from daemon/CMakeLists.txt after the quillane-daemon target is defined.
#
#   <libexecdir>/quillane-daemon
#   <QUILLANE_SYSTEMD_UNIT_DIR>/quillane-daemon.service
#   <datadir>/dbus-1/system.d/com.velmoric.QuillaneDaemon.conf
#   <datadir>/dbus-1/system-services/com.velmoric.QuillaneDaemon.service
#   <datadir>/polkit-1/actions/com.velmoric.quillane.policy
#   <datadir>/quillane/install-manifest.txt
#
# The bus reads its policy and activation files, and polkit its actions, under /usr/share
# only, so a working installation uses the prefix /usr.
#
# The unit, the activation file and the manifest are written at install time, not at configure
# time: they name
# installed paths, and `cmake --install --prefix` may choose another prefix than the one the
# build was configured with. DESTDIR is a staging folder and appears in neither.
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

install(FILES ${CMAKE_CURRENT_LIST_DIR}/dbus/com.velmoric.QuillaneDaemon.conf
        DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/system.d)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/polkit/com.velmoric.quillane.policy
        DESTINATION ${CMAKE_INSTALL_DATADIR}/polkit-1/actions)

# The unit and the manifest come last of all install rules, whatever directory the project
# adds after this one, so that the manifest sees every installed file.
function(quillane_install_unit_and_manifest template activation_template work_dir unit_dir
         bin_dir libexec_dir data_dir)
    string(CONFIGURE [==[
# In a scope of its own, but what it installs joins CMake's own list of installed files.
block(PROPAGATE CMAKE_INSTALL_MANIFEST_FILES)
set(template [[@template@]])
set(activation_template [[@activation_template@]])
set(work_dir [[@work_dir@]])
set(full_unit_dir [[@unit_dir@]])
set(full_bin_dir [[@bin_dir@]])
set(full_libexec_dir [[@libexec_dir@]])
set(full_data_dir [[@data_dir@]])
# Relative folders are relative to the prefix this installation goes to.
foreach(dir full_unit_dir full_bin_dir full_libexec_dir full_data_dir)
    if(NOT IS_ABSOLUTE "${${dir}}")
        set(${dir} "${CMAKE_INSTALL_PREFIX}/${${dir}}")
    endif()
endforeach()
set(CMAKE_INSTALL_FULL_BINDIR "${full_bin_dir}")
set(CMAKE_INSTALL_FULL_LIBEXECDIR "${full_libexec_dir}")
set(unit "${full_unit_dir}/quillane-daemon.service")
set(activation_dir "${full_data_dir}/dbus-1/system-services")
set(activation "${activation_dir}/com.velmoric.QuillaneDaemon.service")
set(manifest "${full_data_dir}/quillane/install-manifest.txt")
set(QUILLANE_INSTALL_MANIFEST "${manifest}")

# CMake lists installed files as the system will see them, without DESTDIR.
set(installed ${CMAKE_INSTALL_MANIFEST_FILES} "${activation}" "${unit}" "${manifest}")
list(REMOVE_DUPLICATES installed)

# systemd and the bus read quotes, backslashes, white space and % in a path as syntax. The unit
# and the activation file name the two programs and the manifest, never the installed files
# themselves, so a resource such as "empty trash.aif" may have a space in its name.
foreach(path IN ITEMS "${full_libexec_dir}/quillane-daemon" "${CMAKE_INSTALL_FULL_BINDIR}/quillane"
        "${manifest}")
    if(path MATCHES "[\"'\\% \t\n]")
        message(FATAL_ERROR "The daemon's unit cannot name \"${path}\"")
    endif()
endforeach()
configure_file("${template}" "${work_dir}/quillane-daemon.service" @ONLY)
configure_file("${activation_template}" "${work_dir}/com.velmoric.QuillaneDaemon.service" @ONLY)

list(JOIN installed "\n" lines)
file(WRITE "${work_dir}/install-manifest.txt" "${lines}\n")

file(INSTALL DESTINATION "${activation_dir}" TYPE FILE
     FILES "${work_dir}/com.velmoric.QuillaneDaemon.service")
file(INSTALL DESTINATION "${full_unit_dir}" TYPE FILE
     FILES "${work_dir}/quillane-daemon.service")
file(INSTALL DESTINATION "${full_data_dir}/quillane" TYPE FILE
     FILES "${work_dir}/install-manifest.txt")
endblock()
]==] code @ONLY)
    install(CODE "${code}")
endfunction()
# The folders are passed from here, where GNUInstallDirs has set them.
cmake_language(EVAL CODE "
    cmake_language(DEFER DIRECTORY [[${CMAKE_SOURCE_DIR}]] CALL quillane_install_unit_and_manifest
                   [[${CMAKE_CURRENT_LIST_DIR}/systemd/quillane-daemon.service.in]]
                   [[${CMAKE_CURRENT_LIST_DIR}/dbus/com.velmoric.QuillaneDaemon.service.in]]
                   [[${CMAKE_CURRENT_BINARY_DIR}/install]] [[${QUILLANE_SYSTEMD_UNIT_DIR}]]
                   [[${CMAKE_INSTALL_BINDIR}]] [[${CMAKE_INSTALL_LIBEXECDIR}]]
                   [[${CMAKE_INSTALL_DATADIR}]])")

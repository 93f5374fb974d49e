# Run by `cmake --install`, last of the project's install rules (install.cmake): writes and
# installs the daemon's systemd unit, its bus activation file and the install manifest.
#
# Set by the caller: template, activation_template (the two templates), QUILLANE_DAEMON_BUS_NAME
# (the activation file's name), work_dir (where they are written before they are installed), and
# full_unit_dir, full_bin_dir, full_libexec_dir, full_data_dir (absolute, or relative to the
# prefix of this installation).

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
set(activation "${activation_dir}/${QUILLANE_DAEMON_BUS_NAME}.service")
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
configure_file("${activation_template}" "${work_dir}/${QUILLANE_DAEMON_BUS_NAME}.service" @ONLY)

list(JOIN installed "\n" lines)
file(WRITE "${work_dir}/install-manifest.txt" "${lines}\n")

file(INSTALL DESTINATION "${activation_dir}" TYPE FILE
     FILES "${work_dir}/${QUILLANE_DAEMON_BUS_NAME}.service")
file(INSTALL DESTINATION "${full_unit_dir}" TYPE FILE
     FILES "${work_dir}/quillane-daemon.service")
file(INSTALL DESTINATION "${full_data_dir}/quillane" TYPE FILE
     FILES "${work_dir}/install-manifest.txt")

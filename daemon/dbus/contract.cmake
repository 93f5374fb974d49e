# The helper link's contract is the two interface files beside this one; both sides of the
# link (the application and its test client; the daemon and its scripted stand-in) generate
# their code from them with these two functions.
set(QUILLANE_CONTRACT_DIR ${CMAKE_CURRENT_LIST_DIR})

# quillane_bus_name(VARIABLE NAME): the string that src/Platform/BusNames.h gives NAME, for the
# files named after the daemon's bus name and polkit actions. The header is their one home.
set(QUILLANE_BUS_NAMES_HEADER ${CMAKE_CURRENT_LIST_DIR}/../../src/Platform/BusNames.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${QUILLANE_BUS_NAMES_HEADER})
function(quillane_bus_name variable name)
    set(pattern "inline const QString ${name} = QStringLiteral\\(\"([^\"]+)\"\\)")
    file(STRINGS ${QUILLANE_BUS_NAMES_HEADER} line REGEX "${pattern}")
    if(NOT line MATCHES "${pattern}")
        message(FATAL_ERROR "BusNames.h has no one-line definition of ${name}")
    endif()
    set(${variable} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()
quillane_bus_name(QUILLANE_DAEMON_BUS_NAME daemonService)
quillane_bus_name(QUILLANE_POLKIT_ACTIONS_FILE polkitActionsFile)

set(QUILLANE_TRASH_HELPER_XML ${QUILLANE_CONTRACT_DIR}/${QUILLANE_DAEMON_BUS_NAME}.TrashHelper.xml)
set(QUILLANE_HELPER_CLIENT_XML ${QUILLANE_CONTRACT_DIR}/${QUILLANE_DAEMON_BUS_NAME}.HelperClient.xml)

# A client of the daemon: TrashHelperProxy to call it, and HelperClientAdaptor exporting the
# given class (whose header is given as the generated code includes it) for its reports.
function(quillane_client_side sources header class)
    set_source_files_properties(${QUILLANE_TRASH_HELPER_XML} PROPERTIES
                                CLASSNAME TrashHelperProxy NO_NAMESPACE ON)
    qt_add_dbus_interface(generated ${QUILLANE_TRASH_HELPER_XML} TrashHelperProxy)
    qt_add_dbus_adaptor(generated ${QUILLANE_HELPER_CLIENT_XML} ${header} ${class}
                        HelperClientAdaptor)
    set(${sources} ${${sources}} ${generated} PARENT_SCOPE)
endfunction()

# The daemon: TrashHelperAdaptor exporting the given class, and HelperClientProxy to report
# back to each caller.
function(quillane_daemon_side sources header class)
    set_source_files_properties(${QUILLANE_HELPER_CLIENT_XML} PROPERTIES
                                CLASSNAME HelperClientProxy NO_NAMESPACE ON)
    qt_add_dbus_interface(generated ${QUILLANE_HELPER_CLIENT_XML} HelperClientProxy)
    qt_add_dbus_adaptor(generated ${QUILLANE_TRASH_HELPER_XML} ${header} ${class}
                        TrashHelperAdaptor)
    set(${sources} ${${sources}} ${generated} PARENT_SCOPE)
endfunction()

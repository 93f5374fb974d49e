# The helper link's contract is the two interface files beside this one; both sides of the
# link (the application and its test client; the daemon and its scripted stand-in) generate
# their code from them with these two functions.
set(QUILLANE_CONTRACT_DIR ${CMAKE_CURRENT_LIST_DIR})
set(QUILLANE_TRASH_HELPER_XML ${QUILLANE_CONTRACT_DIR}/com.velmoric.QuillaneDaemon.TrashHelper.xml)
set(QUILLANE_HELPER_CLIENT_XML ${QUILLANE_CONTRACT_DIR}/com.velmoric.QuillaneDaemon.HelperClient.xml)

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

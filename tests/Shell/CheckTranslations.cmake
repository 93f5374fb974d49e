# cmake -DLUPDATE=... -DSOURCE_DIR=... -DSOURCES_LIST=... -DTS_FILES="a.ts|b.ts" -DOPTIONS="-a|-b"
#       -DWORK_DIR=... -P CheckTranslations.cmake
#
# Brings copies of the .ts files up to date with the sources, as the update_translations target
# does, and fails when a copy differs from the file in the tree (a text was added, changed or
# dropped without the translations following) or when a translation leaves a message unfinished.
# English needs only its plural forms; every other language needs every message.
string(REPLACE "|" ";" TS_FILES "${TS_FILES}")
string(REPLACE "|" ";" OPTIONS "${OPTIONS}")
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(copies)
foreach(ts IN LISTS TS_FILES)
    get_filename_component(name ${ts} NAME)
    file(COPY_FILE ${ts} ${WORK_DIR}/${name})
    list(APPEND copies ${WORK_DIR}/${name})
endforeach()

execute_process(
    COMMAND ${LUPDATE} -silent ${OPTIONS} -I ${SOURCE_DIR} @${SOURCES_LIST} -ts ${copies}
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "lupdate failed (${result}):\n${output}")
endif()

set(problems "")
foreach(ts IN LISTS TS_FILES)
    get_filename_component(name ${ts} NAME)
    file(READ ${ts} committed)
    file(READ ${WORK_DIR}/${name} current)
    if(NOT committed STREQUAL current)
        execute_process(COMMAND diff -u ${ts} ${WORK_DIR}/${name} OUTPUT_VARIABLE difference)
        string(APPEND problems "${name} is not up to date with the sources; build the target "
                               "update_translations and translate what it adds:\n${difference}\n")
    endif()
    if(NOT name MATCHES "_en\\.ts$")
        string(REGEX MATCHALL "<source>[^<]*</source>[ \n]*<translation type=\"unfinished\""
               unfinished "${current}")
        foreach(message IN LISTS unfinished)
            string(REGEX REPLACE "</?source>|[ \n]*<translation.*" "" message "${message}")
            string(APPEND problems "${name} does not translate: ${message}\n")
        endforeach()
    endif()
endforeach()
if(problems)
    message(FATAL_ERROR "${problems}")
endif()

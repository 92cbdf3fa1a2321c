# SPDX-License-Identifier: ISC
# Finds libubox, libblobmsg_json, libubus and libuci, or takes the stand-ins of hostlibs/;
# KELM_HOSTLIBS decides. Adds them to kelm_dependencies. KELM_STAND_INS tells whether they are the
# stand-ins.
include(CheckCSourceCompiles)

set(KELM_HOSTLIBS AUTO CACHE STRING
    "Stand-ins for the OpenWrt libraries: AUTO where none is installed and the build is for this machine, ON always, OFF never")
set_property(CACHE KELM_HOSTLIBS PROPERTY TYPE STRING)  # a build folder may know it as a switch
set_property(CACHE KELM_HOSTLIBS PROPERTY STRINGS AUTO ON OFF)

# Sets RESULT to AUTO, ON or OFF. Accepts every word that CMake accepts for a switch.
function(kelm_hostlibs_choice result)
    string(TOUPPER "${KELM_HOSTLIBS}" word)
    if(word MATCHES "^(ON|TRUE|YES|Y|1)$")
        set(word ON)
    elseif(word MATCHES "^(OFF|FALSE|NO|N|0)$")
        set(word OFF)
    elseif(NOT word STREQUAL "AUTO")
        message(FATAL_ERROR "KELM_HOSTLIBS is \"${KELM_HOSTLIBS}\", but must be AUTO, ON or OFF.")
    endif()
    set(${result} ${word} PARENT_SCOPE)
endfunction()

# Fills the cache variables. Sets "found" and "missing" to the names by which a person knows them.
function(kelm_find_openwrt_libraries)
    find_path(UBOX_INCLUDE_DIR libubox/uloop.h)
    # This header is of the same package. So it is first looked for beside the other one, wherever
    # that lies.
    find_path(BLOBMSG_JSON_INCLUDE_DIR libubox/blobmsg_json.h PATHS ${UBOX_INCLUDE_DIR}
        NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
    find_path(BLOBMSG_JSON_INCLUDE_DIR libubox/blobmsg_json.h)
    find_path(UBUS_INCLUDE_DIR libubus.h)
    find_path(UCI_INCLUDE_DIR uci.h)
    find_library(UBOX_LIBRARY ubox)
    find_library(BLOBMSG_JSON_LIBRARY blobmsg_json)
    find_library(UBUS_LIBRARY ubus)
    find_library(UCI_LIBRARY uci)
    mark_as_advanced(UBOX_INCLUDE_DIR BLOBMSG_JSON_INCLUDE_DIR UBUS_INCLUDE_DIR UCI_INCLUDE_DIR
        UBOX_LIBRARY BLOBMSG_JSON_LIBRARY UBUS_LIBRARY UCI_LIBRARY)
    set(found "")
    set(missing "")
    foreach(part UBOX_INCLUDE_DIR=libubox/uloop.h UBOX_LIBRARY=libubox
            BLOBMSG_JSON_INCLUDE_DIR=libubox/blobmsg_json.h BLOBMSG_JSON_LIBRARY=libblobmsg_json
            UBUS_INCLUDE_DIR=libubus.h UBUS_LIBRARY=libubus UCI_INCLUDE_DIR=uci.h UCI_LIBRARY=libuci)
        string(REPLACE "=" ";" part "${part}")
        list(GET part 0 variable)
        list(GET part 1 name)
        if(${variable})
            list(APPEND found "${name}")
        else()
            list(APPEND missing "${name} (${variable})")
        endif()
    endforeach()
    set(found "${found}" PARENT_SCOPE)
    set(missing "${missing}" PARENT_SCOPE)
endfunction()

# Stops. Otherwise a router could get the stand-ins unnoticed, and they ignore uncommitted uci
# changes.
function(kelm_refuse_missing reason)
    list(JOIN missing "\n  " lines)
    message(FATAL_ERROR "${reason} Missing:\n  ${lines}\n"
        "For a router, install them, name their prefix in CMAKE_PREFIX_PATH or CMAKE_FIND_ROOT_PATH, "
        "or set the variables in brackets. For a PC, -DKELM_HOSTLIBS=ON builds with the stand-ins of "
        "hostlibs/ instead.")
endfunction()

# Links a program and does not run it. So a library for another machine can be checked, too.
function(kelm_check_libubox)
    set(CMAKE_REQUIRED_INCLUDES ${UBOX_INCLUDE_DIR})
    set(CMAKE_REQUIRED_LIBRARIES ${UBOX_LIBRARY})
    set(CMAKE_REQUIRED_QUIET ON)
    # Checked anew each time: the library may be another one now.
    unset(KELM_LIBUBOX_LINKS CACHE)
    unset(KELM_LIBUBOX_KEEPS_CHILDREN CACHE)
    check_c_source_compiles(
        "#include <libubox/uloop.h>\nint main(void) { return uloop_init(); }" KELM_LIBUBOX_LINKS)
    if(NOT KELM_LIBUBOX_LINKS)
        message(FATAL_ERROR "${UBOX_LIBRARY} with ${UBOX_INCLUDE_DIR}/libubox/uloop.h cannot be linked "
            "for this machine; CMakeFiles/CMakeError.log or CMakeConfigureLog.yaml holds the reason.")
    endif()
    check_c_source_compiles(
        "#include <libubox/uloop.h>\nint main(void) { uloop_handle_sigchld = false; return uloop_init(); }"
        KELM_LIBUBOX_KEEPS_CHILDREN)
    if(NOT KELM_LIBUBOX_KEEPS_CHILDREN)
        message(FATAL_ERROR "${UBOX_LIBRARY} is too old: it has no uloop_handle_sigchld. The oldest libubox "
            "that kelm works with is that of 2017-09-29; OpenWrt 18.06 and newer have it.")
    endif()
endfunction()

kelm_hostlibs_choice(KELM_HOSTLIBS_CHOICE)
set(KELM_STAND_INS ON)
if(NOT KELM_HOSTLIBS_CHOICE STREQUAL "ON")
    kelm_find_openwrt_libraries()
    if(NOT missing)
        set(KELM_STAND_INS OFF)
    elseif(KELM_HOSTLIBS_CHOICE STREQUAL "OFF")
        kelm_refuse_missing("KELM_HOSTLIBS is OFF, and not all of the OpenWrt libraries were found.")
    elseif(found)
        list(JOIN found ", " found)
        kelm_refuse_missing("Only a part of the OpenWrt libraries was found: ${found}.")
    elseif(CMAKE_CROSSCOMPILING)
        kelm_refuse_missing("This build is for another machine, and the OpenWrt libraries were not found.")
    endif()
endif()
set(KELM_STAND_INS ${KELM_STAND_INS} CACHE INTERNAL "Whether the daemon is linked with hostlibs/")

# All of the libraries are stand-ins, or none: one of each kind would be two event loops in one
# process.
if(KELM_STAND_INS)
    message(STATUS "OpenWrt libraries: the stand-ins of hostlibs/ (a router needs the real ones)")
    target_link_libraries(kelm_dependencies INTERFACE
        hostlib_ubus hostlib_blobmsg_json hostlib_uci hostlib_ubox)
else()
    kelm_check_libubox()
    message(STATUS "OpenWrt libraries: ${UBUS_LIBRARY} and its neighbours")
    target_include_directories(kelm_dependencies SYSTEM INTERFACE
        ${UBOX_INCLUDE_DIR} ${BLOBMSG_JSON_INCLUDE_DIR} ${UBUS_INCLUDE_DIR} ${UCI_INCLUDE_DIR})
    target_link_libraries(kelm_dependencies INTERFACE
        ${UBUS_LIBRARY} ${BLOBMSG_JSON_LIBRARY} ${UCI_LIBRARY} ${UBOX_LIBRARY})
endif()
# The tests always use the broker and the command of the stand-ins.
if(KELM_STAND_INS OR KELM_TESTS OR KELM_FUZZ)
    add_subdirectory(hostlibs)
endif()

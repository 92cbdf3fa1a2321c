# SPDX-License-Identifier: ISC
# Finds json-c and the OpenWrt libraries; puts them behind the target kelm_dependencies.

add_library(kelm_dependencies INTERFACE)

find_package(Threads REQUIRED)
target_link_libraries(kelm_dependencies INTERFACE Threads::Threads)

# A machine with only the compiler and libjson-c-dev has no pkg-config.
find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
    pkg_check_modules(JSONC QUIET IMPORTED_TARGET GLOBAL json-c)
endif()
if(NOT TARGET PkgConfig::JSONC)
    find_path(JSONC_INCLUDE_DIR json-c/json.h)
    find_library(JSONC_LIBRARY json-c)
    if(NOT JSONC_INCLUDE_DIR OR NOT JSONC_LIBRARY)
        message(FATAL_ERROR "json-c not found: install libjson-c-dev")
    endif()
    add_library(PkgConfig::JSONC UNKNOWN IMPORTED GLOBAL)
    # The headers are included as <json-c/json.h>, but include each other both ways.
    set_target_properties(PkgConfig::JSONC PROPERTIES IMPORTED_LOCATION ${JSONC_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES "${JSONC_INCLUDE_DIR};${JSONC_INCLUDE_DIR}/json-c")
endif()

# The four OpenWrt libraries are taken together or not at all: a stand-in beside a real one would be two
# event loops in one process.
if(NOT KELM_HOSTLIBS)
    find_path(UBOX_INCLUDE_DIR libubox/uloop.h)
    find_path(UBUS_INCLUDE_DIR libubus.h)
    find_path(UCI_INCLUDE_DIR uci.h)
    find_library(UBOX_LIBRARY ubox)
    find_library(BLOBMSG_JSON_LIBRARY blobmsg_json)
    find_library(UBUS_LIBRARY ubus)
    find_library(UCI_LIBRARY uci)
endif()
if(NOT KELM_HOSTLIBS AND UBOX_INCLUDE_DIR AND UBUS_INCLUDE_DIR AND UCI_INCLUDE_DIR AND UBOX_LIBRARY
   AND BLOBMSG_JSON_LIBRARY AND UBUS_LIBRARY AND UCI_LIBRARY)
    message(STATUS "OpenWrt libraries: ${UBUS_LIBRARY} and its neighbours")
    target_include_directories(kelm_dependencies SYSTEM INTERFACE
        ${UBOX_INCLUDE_DIR} ${UBUS_INCLUDE_DIR} ${UCI_INCLUDE_DIR})
    target_link_libraries(kelm_dependencies INTERFACE
        ${UBUS_LIBRARY} ${BLOBMSG_JSON_LIBRARY} ${UCI_LIBRARY} ${UBOX_LIBRARY})
    if(KELM_TESTS)
        add_subdirectory(hostlibs)  # the tests' broker and command
    endif()
else()
    message(STATUS "OpenWrt libraries: the stand-ins of hostlibs/")
    add_subdirectory(hostlibs)
    target_link_libraries(kelm_dependencies INTERFACE
        hostlib_ubus hostlib_blobmsg_json hostlib_uci hostlib_ubox)
endif()

# Last: libblobmsg_json needs it, which matters where both are static.
target_link_libraries(kelm_dependencies INTERFACE PkgConfig::JSONC)

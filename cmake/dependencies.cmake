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
    # The headers are included as <json-c/json.h>. They include each other with and without the
    # folder.
    set_target_properties(PkgConfig::JSONC PROPERTIES IMPORTED_LOCATION ${JSONC_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES "${JSONC_INCLUDE_DIR};${JSONC_INCLUDE_DIR}/json-c")
endif()

include(cmake/openwrt_libraries.cmake)

# json-c comes last, since libblobmsg_json needs it. The order matters where both are static.
target_link_libraries(kelm_dependencies INTERFACE PkgConfig::JSONC)

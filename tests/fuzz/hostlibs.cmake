# SPDX-License-Identifier: ISC
# Fuzzing targets of the stand-in libraries and of the broker.
kelm_fuzz_target(uci hostlib_uci)
target_sources(fuzz_uci PRIVATE uci_writer.cpp)

kelm_fuzz_target(blob hostlib_blobmsg_json PkgConfig::JSONC)
target_sources(fuzz_blob PRIVATE json_walk.cpp)

kelm_fuzz_target(broker hostlib_ubus)
add_library(fuzz_broker_code OBJECT ${CMAKE_SOURCE_DIR}/hostlibs/ubusd_bus.c
    ${CMAKE_SOURCE_DIR}/hostlibs/ubusd_client.c)
target_compile_definitions(fuzz_broker_code PRIVATE _GNU_SOURCE)
target_link_libraries(fuzz_broker_code PRIVATE hostlib_ubus)
target_include_directories(fuzz_broker PRIVATE ${CMAKE_SOURCE_DIR}/hostlibs)
target_sources(fuzz_broker PRIVATE broker_client.cpp bus_bytes.cpp $<TARGET_OBJECTS:fuzz_broker_code>)
target_link_options(fuzz_broker PRIVATE -Wl,--wrap=recv -Wl,--wrap=getrandom
    -Wl,--wrap=getpwuid -Wl,--wrap=getgrgid)

kelm_fuzz_target(bus_client hostlib_ubus hostlib_blobmsg_json)
target_sources(fuzz_bus_client PRIVATE bus_bytes.cpp bus_peer.cpp)
foreach(call connect close read recv sendmsg poll)
    target_link_options(fuzz_bus_client PRIVATE -Wl,--wrap=${call})
endforeach()

# SPDX-License-Identifier: ISC
# 64-bit time, for a C library whose own time ends in January 2038. From then on its time() fails,
# so no attempt would ever time out. Each look at a file that was written later fails too.
include(CheckCXXSourceCompiles)
check_cxx_source_compiles(
    "#include <time.h>\nstatic_assert(sizeof(time_t) > 4, \"ends in 2038\");\nint main() { return 0; }"
    KELM_TIME_IS_WIDE)
if(KELM_TIME_IS_WIDE)
    set(KELM_WIDE_TIME "")
else()
    set(KELM_WIDE_TIME _TIME_BITS=64 _FILE_OFFSET_BITS=64)
    # libubox's timer is a structure that holds a time. Only these files share it with each other
    # and with the library, which may have been built without 64-bit time.
    foreach(source ipc/bus.cpp ipc/bus_listener.cpp watch/bus_source.cpp)
        set_source_files_properties(${CMAKE_SOURCE_DIR}/${source} PROPERTIES
            COMPILE_OPTIONS "-U_TIME_BITS;-U_FILE_OFFSET_BITS")
    endforeach()
endif()

# Sends calls of the C library to the functions __wrap_NAME of a program. With 64-bit time some of
# these calls have other names.
function(kelm_wrap_calls program)
    set(wide_time __time64)
    set(wide_clock_gettime __clock_gettime64)
    set(wide_fcntl __fcntl_time64)
    set(wide_ppoll __ppoll64)
    foreach(call ${ARGN})
        if(KELM_WIDE_TIME AND DEFINED wide_${call})
            target_compile_definitions(${program} PRIVATE
                __wrap_${call}=__wrap_${wide_${call}} __real_${call}=__real_${wide_${call}})
            set(call ${wide_${call}})
        endif()
        target_link_options(${program} PRIVATE -Wl,--wrap=${call})
    endforeach()
endfunction()

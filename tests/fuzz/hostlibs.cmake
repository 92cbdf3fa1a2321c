# SPDX-License-Identifier: ISC
# Fuzzing targets of the stand-in libraries and of the broker.
kelm_fuzz_target(uci hostlib_uci)
target_sources(fuzz_uci PRIVATE uci_writer.cpp)

kelm_fuzz_target(blob hostlib_blobmsg_json PkgConfig::JSONC)
target_sources(fuzz_blob PRIVATE json_walk.cpp)

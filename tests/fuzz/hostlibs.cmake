# SPDX-License-Identifier: ISC
# Fuzzing targets of the stand-in libraries and of the broker.
kelm_fuzz_target(uci hostlib_uci)
target_sources(fuzz_uci PRIVATE uci_writer.cpp)

// SPDX-License-Identifier: ISC
// Whether the root access point of a band speaks EasyMesh.
#pragma once

#include <cstdint>

namespace kelm {

// A band outside 0 to 3 is ignored and reads 0.
void set_band_easymesh_wps(int band, uint32_t value);
uint32_t get_band_easymesh_wps(int band);
void reset_band_easymesh_wps();

}  // namespace kelm

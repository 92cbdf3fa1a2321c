// SPDX-License-Identifier: ISC
// Whether the root access point of a band speaks EasyMesh.
#pragma once

#include <cstdint>

namespace kelm {

// A mark for each band. The first function ignores a band outside 0 to 3, and the second returns 0
// for it. The third sets all marks to 0.
void set_band_easymesh_wps(int band, uint32_t value);
uint32_t get_band_easymesh_wps(int band);
void reset_band_easymesh_wps();

}  // namespace kelm

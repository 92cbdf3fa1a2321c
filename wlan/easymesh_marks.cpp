// SPDX-License-Identifier: ISC
// Marks of the four bands.
#include "wlan/easymesh_marks.h"

#include "core/kelm.h"

namespace kelm {

namespace {

uint32_t easymesh_wps[KELM_BAND_COUNT];

}  // namespace

void set_band_easymesh_wps(int band, uint32_t value)
{
    if (kelm_is_band(band))
        easymesh_wps[band] = value;
}

uint32_t get_band_easymesh_wps(int band)
{
    return kelm_is_band(band) ? easymesh_wps[band] : 0;
}

void reset_band_easymesh_wps()
{
    for (uint32_t &mark : easymesh_wps)
        mark = 0;
}

}  // namespace kelm

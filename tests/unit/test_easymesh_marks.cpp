// SPDX-License-Identifier: ISC
// Whether the root access point of a band speaks EasyMesh.
#include "wlan/easymesh_marks.h"

#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class easymesh_marks : public device_test {};

}  // namespace

TEST_F(easymesh_marks, the_easymesh_marks_are_kept_per_band_until_they_are_reset)
{
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        set_band_easymesh_wps(index, static_cast<uint32_t>(index + 10));
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        EXPECT_EQ(static_cast<uint32_t>(index + 10), get_band_easymesh_wps(index));
    reset_band_easymesh_wps();
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        EXPECT_EQ(0u, get_band_easymesh_wps(index));
}

TEST_F(easymesh_marks, an_easymesh_mark_of_no_band_is_ignored)
{
    for (int index : {4, -1, 1000000}) {
        set_band_easymesh_wps(index, 1);
        EXPECT_EQ(0u, get_band_easymesh_wps(index));
    }
}

// SPDX-License-Identifier: ISC
// Whether an access point is open.
#include "wlan/security_type.h"

#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class security_type : public device_test {};

}  // namespace

TEST_F(security_type, the_security_type_is_read_afresh_from_the_access_point_block)
{
    uint32_t type = 77;
    write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=4\nwlanSecType_6g=5\n");
    EXPECT_EQ(0, _read_ap_secType(0, &type));
    EXPECT_EQ(1u, type);
    EXPECT_EQ(0, _read_ap_secType(1, &type));
    EXPECT_EQ(4u, type);
    EXPECT_EQ(0, _read_ap_secType(2, &type));
    EXPECT_EQ(0u, type);
    EXPECT_EQ(0, _read_ap_secType(3, &type));
    EXPECT_EQ(5u, type);
    write_wifi_conf("wlanSecType_6g=0\n");
    EXPECT_EQ(0, _read_ap_secType(3, &type));
    EXPECT_EQ(0u, type);
}

TEST_F(security_type, a_missing_wifi_file_reads_as_an_open_access_point)
{
    uint32_t type = 77;
    EXPECT_EQ(0, _read_ap_secType(0, &type));
    EXPECT_EQ(0u, type);
}

TEST_F(security_type, the_security_type_of_no_band_is_refused_and_told_in_detail)
{
    uint32_t type = 77;
    write_wifi_conf("wlanSecType_2g=1\n");
    for (int index : {4, 5, -1}) {
        kelm_dbg_level = 6;
        EXPECT_EQ(-1, _read_ap_secType(index, &type));
        EXPECT_EQ("", log_text());
        kelm_dbg_level = 7;
        EXPECT_EQ(-1, _read_ap_secType(index, &type));
        EXPECT_EQ("> invalid band\n", log_text());
    }
    EXPECT_EQ(77u, type);
}

TEST_F(security_type, the_security_type_is_told_in_detail)
{
    uint32_t type = 77;
    write_wifi_conf("wlanSecType_2g=3\n");
    EXPECT_EQ(0, _read_ap_secType(0, &type));
    EXPECT_EQ("", log_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(0, _read_ap_secType(0, &type));
    EXPECT_EQ("> ready to parse type 1\n> wps_parse_ap_config finished.\n> SecType: 3\n",
              log_text());
}

TEST_F(security_type, only_type_0_is_no_security)
{
    EXPECT_TRUE(_is_none_sec(0));
    for (uint32_t type : {1u, 2u, 3u, 4u, 5u, 6u, 0x100u, 0xffffffffu})
        EXPECT_FALSE(_is_none_sec(type)) << type;
}

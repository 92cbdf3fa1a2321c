// SPDX-License-Identifier: ISC
// Which bands the device has.
#include "wlan/device_bands.h"

#include <sys/mount.h>
#include <unistd.h>

#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *device_path = "/tmp/device.info";

class device_bands : public device_test {
protected:
    // Reads the band-set code over a 77; the result in *result.
    static int read_code(int *result)
    {
        int32_t code = 77;
        *result = kelm_get_RFBand(&code);
        return code;
    }
};

struct code_case {
    const char *json;
    int code;  // 77: untouched
};

const code_case codes[] = {
    {"{\"RFBand\": 0}", 0},
    {"{\"RFBand\": 5}", 5},
    {"{\"RFBand\": 99}", 99},
    {"{\"RFBand\": -3, \"model\": \"x\"}\n", -3},
    {"{}", 77},
    {"{\"RFBand\": \"2\"}", 77},
    {"{\"RFBand\": true}", 77},
    {"{\"RFBand\": 2.0}", 77},
    {"{\"RFBand\": null}", 77},
    {"{\"RFBand\": [2]}", 77},
    {"{\"rfband\": 2}", 77},
    {"[2]", 77},
    {"2", 77},
};

// Exactly this many bytes of JSON with the code 3 in front.
std::string device_of_size(size_t size)
{
    const std::string start = "{\"RFBand\": 3, \"pad\": \"";
    return start + std::string(size - start.size() - 2, 'x') + "\"}";
}

}  // namespace

TEST_F(device_bands, the_band_set_is_the_integer_that_the_file_names_and_else_stays)
{
    for (const code_case &row : codes) {
        write_file(device_path, row.json);
        int result = -2;
        EXPECT_EQ(row.code, read_code(&result)) << row.json;
        EXPECT_EQ(0, result) << row.json;
    }
    EXPECT_EQ("", log_text());
}

TEST_F(device_bands, a_missing_device_file_is_told_at_any_level)
{
    kelm_dbg_level = 0;
    int result = 0;
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("> Open /tmp/device.info file failed.\n", log_text());
}

TEST_F(device_bands, a_read_only_device_file_counts_as_missing)
{
    write_file(device_path, "{\"RFBand\": 2}");
    ASSERT_EQ(0, mount(device_path, device_path, nullptr, MS_BIND, nullptr));
    ASSERT_EQ(0, mount(nullptr, device_path, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr));
    int result = 0;
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(0, umount(device_path));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("> Open /tmp/device.info file failed.\n", log_text());
}

TEST_F(device_bands, an_unreadable_device_file_is_told_at_any_level)
{
    // Opens for reading and writing, but its first page is mapped nowhere.
    ASSERT_EQ(0, symlink("/proc/self/mem", device_path));
    kelm_dbg_level = 0;
    const size_t before = open_descriptors();
    int result = 0;
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("> Read device.info file failed.\n", log_text());
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(device_bands, a_device_file_that_is_no_json_is_told_at_any_level)
{
    kelm_dbg_level = 0;
    const size_t before = open_descriptors();
    for (const char *text : {"", "{", "RFBand=2", "{\"RFBand\": 2"}) {
        write_file(device_path, text);
        int result = 0;
        EXPECT_EQ(77, read_code(&result)) << text;
        EXPECT_EQ(-1, result) << text;
        EXPECT_EQ("> Parse string to json failed.\n", log_text()) << text;
    }
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(device_bands, no_memory_for_the_device_file_is_told_at_any_level)
{
    write_file(device_path, "{\"RFBand\": 2}");
    kelm_dbg_level = 0;
    fail_next("calloc", {1});
    int result = 0;
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("> malloc failed.\n", log_text());
}

TEST_F(device_bands, a_device_file_is_read_in_its_first_2048_bytes_and_not_beyond_its_buffer)
{
    int result = -2;
    write_file(device_path, device_of_size(2048));
    EXPECT_EQ(3, read_code(&result));
    EXPECT_EQ(0, result);
    write_file(device_path, device_of_size(2048) + std::string(4000, '}'));
    EXPECT_EQ(3, read_code(&result));
    EXPECT_EQ(0, result);
    write_file(device_path, device_of_size(2049));
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(-1, result);
    // Two thousand and forty-eight digits: a reader that ran on would find more of them.
    write_file(device_path, std::string(2048, '1'));
    EXPECT_EQ(77, read_code(&result));
}

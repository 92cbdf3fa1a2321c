// SPDX-License-Identifier: ISC
// Times the reading of a short scan result (many times over), of a long one and of a configuration
// file, each in turn with its floors.
//
// usage: parsing ROUNDS SHORT_SCAN_FILE SCAN_FILE CONFIGURATION_FILE
// Prints a line a measurement: its name and the nanoseconds.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <json-c/json.h>

#include "config/conf_tree.h"
#include "core/json_file.h"
#include "core/session.h"
#include "wlan/rootap.h"

using namespace kelm;

// The linker sends the daemon's commands here: what the scan tool takes is not the daemon's.
extern "C" int __wrap__ZN4kelm12wps_exec_cmdEPKcz(const char *, ...)
{
    return 0;
}

extern "C" int __wrap__ZN4kelm12wps_exec_cmdENS_12command_kindEPKcz(int, const char *, ...)
{
    return 0;
}

namespace {

long long now_ns()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "%s\n", what);
    exit(1);
}

// The last entry but one carries the wanted address, so that every entry is looked at.
void match_scan(const char *path)
{
    kelm_session joined = {};
    const uint8_t bssid[WPS_BSSID_LEN] = {0x02, 0, 0, 0, 0x01, 0x01};
    memcpy(joined.rootap.bssid, bssid, sizeof bssid);
    snprintf(joined.rootap.ssid, sizeof joined.rootap.ssid, "Root");
    kelm_session *session = kelm_get_wps_session(KELM_BAND_5G);
    session->rootap = {};
    if (kelm_match_rootap(path, &joined, session) != 1 || session->rootap.bssid[5] != 0x02)
        fail("the scan result holds no match");
}

void only_parse_json(const char *path)
{
    json_object *list = json_object_from_file(path);
    if (list == nullptr)
        fail("the scan result is no JSON");
    json_object_put(list);
}

// Once takes some microseconds, which other work on the machine would cover.
constexpr int SHORT_REPEATS = 50;

void load_short(const char *path)
{
    for (int i = 0; i < SHORT_REPEATS; ++i) {
        if (!kelm_load_json(path))
            fail("the short scan result is no JSON");
    }
}

void only_parse_short(const char *path)
{
    for (int i = 0; i < SHORT_REPEATS; ++i)
        only_parse_json(path);
}

void parse_configuration(const char *path)
{
    const unique_cfg_tree tree(wps_hapd_wpasupp_config_parse(path));
    if (!tree)
        fail("the configuration file is refused");
}

void only_read_lines(const char *path)
{
    FILE *file = fopen(path, "re");
    char line[CFG_LINE_SIZE];
    size_t lines = 0;
    while (file != nullptr && fgets(line, sizeof line, file) != nullptr)
        ++lines;
    if (lines == 0)
        fail("the configuration file is empty");
    fclose(file);
}

// Reads, and takes and returns the memory of an item for each line.
void read_lines_and_allocate(const char *path)
{
    FILE *file = fopen(path, "re");
    if (file == nullptr)
        fail("there is no configuration file");
    char line[CFG_LINE_SIZE];
    hapd_wpasupp_cfgitem *first = nullptr;
    while (fgets(line, sizeof line, file) != nullptr) {
        auto *item = static_cast<hapd_wpasupp_cfgitem *>(calloc(1, sizeof *first));
        item->next = first;
        first = item;
    }
    fclose(file);
    while (first != nullptr) {
        hapd_wpasupp_cfgitem *next = first->next;
        free(first);
        first = next;
    }
}

void measure(const char *name, void (*step)(const char *), const char *path)
{
    const long long begin = now_ns();
    step(path);
    printf("%s %lld\n", name, now_ns() - begin);
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 5 || kelm_create_session(2) != 0)
        return 2;
    for (int round = 0; round < atoi(argv[1]); ++round) {
        measure("short_load", load_short, argv[2]);
        measure("short_json", only_parse_short, argv[2]);
        measure("match", match_scan, argv[3]);
        measure("json", only_parse_json, argv[3]);
        measure("configuration", parse_configuration, argv[4]);
        measure("fgets", only_read_lines, argv[4]);
        measure("allocate", read_lines_and_allocate, argv[4]);
    }
    return 0;
}

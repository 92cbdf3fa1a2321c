// SPDX-License-Identifier: ISC
// The options of kelm-watch, their help and what is said about wrong ones.
#include "watch/options.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kelm {

namespace {

constexpr unsigned LIMIT_MAX_KIB = 1024 * 1024;  // one GiB: more is hardly read by any tool
constexpr unsigned SECONDS_MAX = 7 * 24 * 60 * 60;

struct band_word {
    const char *word;
    const char *band;
};

constexpr band_word BAND_WORDS[] = {
    {"2.4", "2.4 GHz"}, {"2.4 GHz", "2.4 GHz"}, {"5", "5 GHz"},
    {"5 GHz", "5 GHz"}, {"6", "6 GHz"},         {"6 GHz", "6 GHz"},
};

// Takes an option's value. Returns null, or what is wrong with the value.
using taker = const char *(*)(watch_options *, const char *);

const char *_take_number(const char *value, unsigned least, unsigned most, unsigned *number)
{
    if (value[0] < '0' || value[0] > '9')
        return "is no number";
    char *end = nullptr;
    errno = 0;
    const unsigned long taken = strtoul(value, &end, 10);
    if (*end != '\0')
        return "is no number";
    if (errno != 0 || taken < least || taken > most)
        return "is out of range";
    *number = static_cast<unsigned>(taken);
    return nullptr;
}

const char *_take_path(const char *value, const char **path)
{
    if (value[0] == '\0')
        return "is empty";
    *path = value;
    return nullptr;
}

const char *_recording(watch_options *options, const char *value)
{
    return _take_path(value, &options->recording);
}

const char *_limit(watch_options *options, const char *value)
{
    return _take_number(value, 1, LIMIT_MAX_KIB, &options->limit_kib);
}

const char *_log(watch_options *options, const char *value)
{
    return _take_path(value, &options->log);
}

const char *_hostapd(watch_options *options, const char *value)
{
    return _take_path(value, &options->hostapd_folder);
}

const char *_supplicant(watch_options *options, const char *value)
{
    return _take_path(value, &options->supplicant_folder);
}

const char *_band(watch_options *options, const char *value)
{
    const char *equals = strchr(value, '=');
    if (equals == nullptr || equals == value)
        return "is not INTERFACE=BAND";
    if (options->band_count == WATCH_BAND_OPTIONS_MAX)
        return "is one interface too many";
    for (const band_word &row : BAND_WORDS) {
        if (strcmp(row.word, equals + 1) != 0)
            continue;
        options->bands[options->band_count++] = {value, static_cast<size_t>(equals - value),
                                                 row.band};
        return nullptr;
    }
    return "names no band: they are 2.4, 5 and 6";
}

const char *_seconds(watch_options *options, const char *value)
{
    return _take_number(value, 1, SECONDS_MAX, &options->seconds);
}

const char *_anonymous(watch_options *options, const char *)
{
    options->anonymous = true;
    return nullptr;
}

const char *_once(watch_options *options, const char *)
{
    options->once = true;
    return nullptr;
}

const char *_quiet(watch_options *options, const char *)
{
    options->quiet = true;
    return nullptr;
}

const char *_no_colour(watch_options *options, const char *)
{
    options->no_colour = true;
    return nullptr;
}

struct option_row {
    const char *name;
    const char *value;  // what its value is called, or null if it takes none
    taker take;         // null: the option prints something, and the program ends
    const char *help;
};

constexpr option_row OPTIONS[] = {
    {"-o", "FILE", _recording, "writes a recording; FILE must not be there yet"},
    {"--limit", "KIB", _limit, "the size of the recording at most (4096)"},
    {"--anonymous", nullptr, _anonymous, "addresses and names become aliases (device-1)"},
    {"--log", "FILE", _log, "follows the daemon's log too; - is standard input"},
    {"--hostapd", "DIR", _hostapd, "hostapd's control sockets (/var/run/hostapd)"},
    {"--supplicant", "DIR", _supplicant, "wpa_supplicant's (/var/run/wpa_supplicant)"},
    {"--band", "IFACE=BAND", _band, "the band of an interface: 2.4, 5 or 6; may be repeated"},
    {"--seconds", "N", _seconds, "ends after N seconds"},
    {"--once", nullptr, _once, "ends after the first attempt"},
    {"--quiet", nullptr, _quiet, "nothing on the screen"},
    {"--no-colour", nullptr, _no_colour, "no colours"},
    {"--help", nullptr, nullptr, "this text"},
    {"--version", nullptr, nullptr, "the version"},
};

void _tell_help()
{
    printf(
        "Usage: kelm-watch [OPTION]...\n"
        "Shows a WPS attempt as it happens, and can record it. It changes nothing.\n\n");
    for (const option_row &row : OPTIONS) {
        char left[32];
        (void)snprintf(left, sizeof left, "%s%s%s", row.name, row.value != nullptr ? " " : "",
                       row.value != nullptr ? row.value : "");
        printf("  %-18s %s\n", left, row.help);
    }
    printf(
        "\nIt ends with Ctrl-C. Exit status: 0 it ended as asked, 1 trouble, 2 wrong use.\n"
        "No PIN, key or passphrase is shown or recorded.\n");
}

// subject: the word of the command line that is wrong.
watch_use _wrong(const char *subject, const char *trouble, const char *more = "")
{
    (void)fprintf(stderr, "kelm-watch: '%s' %s%s; see kelm-watch --help\n", subject, trouble, more);
    return watch_use::wrong;
}

// The row of an argument, "--name" or "--name=value". value: becomes the text behind the "=", or
// null.
const option_row *_option_row(const char *argument, const char **value)
{
    *value = nullptr;
    for (const option_row &row : OPTIONS) {
        const size_t length = strlen(row.name);
        if (strncmp(argument, row.name, length) != 0)
            continue;
        if (argument[length] == '\0')
            return &row;
        if (argument[length] == '=' && length > 2) {
            *value = argument + length + 1;
            return &row;
        }
    }
    return nullptr;
}

}  // namespace

watch_use watch_read_options(int argc, char **argv, watch_options *options)
{
    for (int i = 1; i < argc; ++i) {
        const char *value = nullptr;
        const option_row *row = _option_row(argv[i], &value);
        if (row == nullptr)
            return _wrong(argv[i], "is no option");
        if (row->value == nullptr && value != nullptr)
            return _wrong(argv[i], "takes no value");
        if (row->take == nullptr) {
            if (strcmp(row->name, "--help") == 0)
                _tell_help();
            else
                printf("kelm-watch %s\n", KELM_VERSION);
            return watch_use::told;
        }
        if (row->value != nullptr && value == nullptr) {
            if (i + 1 == argc)
                return _wrong(argv[i], "needs a value, ", row->value);
            value = argv[++i];
        }
        const char *complaint = row->take(options, value);
        if (complaint != nullptr)
            return _wrong(value, complaint);
    }
    return watch_use::run;
}

}  // namespace kelm

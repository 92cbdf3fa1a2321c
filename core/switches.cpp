// SPDX-License-Identifier: ISC
// The environment variables that are switches.
#include "core/switches.h"

#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "core/text.h"

namespace kelm {

namespace {

constexpr const char *WIFI_VARIABLE = "KELM_WIFI";
constexpr const char *DEFAULT_WIFI = "/usr/bin/wifi";
constexpr size_t WORD_SIZE = KELM_WIFI_PATH_MAX * 4 + 3;  // what shell_word needs at most

struct switch_row {
    const char *variable;
    const char *value;  // the one that switches it on
    bool on;
    bool refused;
};

switch_row foreground = {"KELM_FOREGROUND", "1", false, false};
switch_row system_log = {"KELM_LOG", "syslog", false, false};
switch_row credential_events = {"KELM_CREDENTIALS", "event", false, false};
switch_row *const SWITCHES[] = {&foreground, &system_log, &credential_events};

char wifi_word[WORD_SIZE];  // empty: the default
bool wifi_refused = false;

// Null for a variable that is unset or empty.
const char *_variable_value(const char *variable)
{
    const char *value = getenv(variable);
    return value == nullptr || value[0] == '\0' ? nullptr : value;
}

void _read_switch(switch_row *row)
{
    const char *value = _variable_value(row->variable);
    row->on = value != nullptr && strcmp(value, row->value) == 0;
    row->refused = value != nullptr && !row->on;
}

void _read_wifi()
{
    wifi_word[0] = '\0';
    const char *path = _variable_value(WIFI_VARIABLE);
    wifi_refused = path != nullptr && (path[0] != '/' || strlen(path) > KELM_WIFI_PATH_MAX);
    if (path != nullptr && !wifi_refused)
        (void)shell_word(wifi_word, sizeof wifi_word, path);
}

}  // namespace

void kelm_read_switches()
{
    for (switch_row *row : SWITCHES)
        _read_switch(row);
    _read_wifi();
    kelm_log_to_system_log(system_log.on);
}

void kelm_tell_refused_switches()
{
    for (const switch_row *row : SWITCHES) {
        if (row->refused)
            kelm_log_always("%s: not \"%s\", ignored\n", row->variable, row->value);
    }
    if (wifi_refused)
        kelm_log_always("%s: no absolute path of at most %d bytes, ignored\n", WIFI_VARIABLE,
                        KELM_WIFI_PATH_MAX);
}

bool kelm_stays_in_foreground()
{
    return foreground.on;
}

bool kelm_takes_credential_events()
{
    return credential_events.on;
}

const char *kelm_wifi_program()
{
    return wifi_word[0] != '\0' ? wifi_word : DEFAULT_WIFI;
}

}  // namespace kelm

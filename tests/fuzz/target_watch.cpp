// SPDX-License-Identifier: ISC
// Way in: what kelm-watch is told, by the Wi-Fi daemons, the bus, the log. The first line is the
// source, the rest the text.
//
// Properties: what was kept is kept again; a payload or a PIN at its known places never stays; no
// address is left under aliases; a recorded line is one line of JSON that holds the same text; no
// byte that a terminal obeys is shown.
#include <cctype>
#include <cstring>

#include "core/json_file.h"
#include "core/json_text.h"
#include "tests/fuzz/fuzz.h"
#include "watch/kept.h"
#include "watch/log_line.h"
#include "watch/pattern.h"
#include "watch/recording.h"
#include "watch/screen.h"
#include "watch/tell.h"
#include "watch/words.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

using namespace kelm;

namespace {

constexpr const char *SOURCES[] = {"hostapd", "station", "bus",  "command",  "script",
                                   "start",   "exit",    "file", "settings", "console",
                                   "socket",  "watch",   "log"};

text_span part(const std::string &text)
{
    return {text.data(), text.size()};
}

std::string kept(const char *source, const std::string &text, watch_aliases *aliases)
{
    char buffer[2 * WATCH_TEXT_SIZE];
    text_out out(buffer);
    text_span iface;
    watch_keep(source, part(text), aliases, &out, &iface);
    return std::string(out.span().at, out.span().length);
}

void check_kept(const char *source, const std::string &text)
{
    const std::string once = kept(source, text, nullptr);
    PROPERTY(kept(source, once, nullptr) == once);
    watch_told told;
    (void)watch_describe(source, part(once), &told);
}

// What stands behind these words is left out, whatever it is.
void check_places(const std::string &text)
{
    struct place {
        const char *source;
        const char *before;
    };
    constexpr place PLACES[] = {
        {"hostapd", "wlan1: WPS-NEW-AP-SETTINGS "},
        {"station", "wlan1-vxd: WPS-CRED-RECEIVED "},
        {"command", "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any "},
        {"command", "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_ap_pin set "},
        {"command", "1 nvram set wpa_psk="},
        {"console",
         "kelm[kelm_check_available_status:99]: enabled: 1, apWpsAvailable: 3, "
         "staWpsAvailable: 3, pinEnabled: 0, pinCode:"},
        {"console", "kelm[x:1]: --------------------band 0 localApSecCfg password: "},
    };
    const text_span core = stripped(part(text));
    if (core.length == 0 || watch_is_mark(core))
        return;
    for (const place &row : PLACES) {
        const std::string line = row.before + text;
        if (line.size() > WATCH_TEXT_SIZE)
            continue;
        const std::string left = kept(row.source, line, nullptr);
        const std::string behind = left.substr(strlen(row.before));
        PROPERTY(left.compare(0, strlen(row.before), row.before) == 0);
        PROPERTY(watch_is_mark(stripped(part(behind))));
    }
}

bool is_address_at(const std::string &text, size_t at)
{
    bool has_digit = false;
    for (size_t i = 0; i < 17; ++i) {
        const char c = text[at + i];
        if (i % 3 == 2 ? c != ':' : isxdigit(static_cast<unsigned char>(c)) == 0)
            return false;
        has_digit = has_digit || (i % 3 != 2 && c != '0');
    }
    const auto is_more = [](char c) {
        return isxdigit(static_cast<unsigned char>(c)) != 0 || c == ':';
    };
    const bool ends = at + 17 == text.size() || !is_more(text[at + 17]);
    const bool begins = at == 0 || !is_more(text[at - 1]);
    return has_digit && begins && ends;
}

void check_aliases(const std::string &text)
{
    static watch_aliases aliases;
    aliases = watch_aliases();
    std::string buffer(text.size() * 2 + 64, '\0');
    text_out out(&buffer[0], buffer.size());
    aliases.rewrite(part(text), &out);
    const std::string left(out.span().at, out.span().length);
    for (size_t at = 0; at + 17 <= left.size(); ++at)
        PROPERTY(!is_address_at(left, at));
}

void check_recorded(const std::string &text)
{
    std::string buffer(text.size() * 6 + 1, '\0');
    text_out out(&buffer[0], buffer.size());
    watch_add_json(part(text), &out);
    PROPERTY(!out.full());
    const std::string line = "\"" + std::string(out.span().at, out.span().length) + "\"";
    for (const char c : line)
        PROPERTY(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
    const unique_json read(json_tokener_parse(line.c_str()));
    PROPERTY(read && json_object_is_type(read.get(), json_type_string));
    const std::string again(json_object_get_string(read.get()),
                            static_cast<size_t>(json_object_get_string_len(read.get())));
    PROPERTY(!kelm_is_utf8(text.data(), text.size()) || again == text);
}

void check_shown(const std::string &text)
{
    std::string buffer(text.size() * 3 + 1, '\0');
    text_out out(&buffer[0], buffer.size());
    watch_add_shown(part(text), &out);
    PROPERTY(!out.full());
    PROPERTY(kelm_is_utf8(out.span().at, out.span().length));
    for (size_t i = 0; i < out.span().length; ++i) {
        const auto c = static_cast<unsigned char>(out.span().at[i]);
        PROPERTY(c >= 0x20 && c != 0x7f);
        PROPERTY(c != 0xc2 || static_cast<unsigned char>(out.span().at[i + 1]) >= 0xa0);
    }
}

// Whose line it is may only be said of a part of the line.
void check_log_line(const std::string &text)
{
    const watch_log_line line = watch_read_log_line(part(text));
    if (line.source == nullptr)
        return;
    PROPERTY(strcmp(line.source, "console") == 0 || strcmp(line.source, "log") == 0);
    PROPERTY(line.text.at >= text.data());
    PROPERTY(line.text.at + line.text.length <= text.data() + text.size());
    check_kept(line.source, std::string(line.text.at, line.text.length));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kelm_fuzz::input in(data, size);
    const std::string name = in.line();
    const std::string text = in.rest();
    for (const char *source : SOURCES) {
        if (name == source)
            check_kept(source, text);
    }
    check_log_line(text);
    check_places(text);
    check_aliases(text);
    check_recorded(text);
    check_shown(text);
    return 0;
}

// SPDX-License-Identifier: ISC
// What was seen loses its secrets, then gets aliases if asked, then goes to screen and recording.
#include "watch/tell.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "core/text.h"
#include "watch/aliases.h"
#include "watch/bands.h"
#include "watch/kept.h"
#include "watch/members.h"
#include "watch/outputs.h"
#include "watch/pattern.h"
#include "watch/recording.h"
#include "watch/screen.h"
#include "watch/words.h"

namespace kelm {

namespace {

constexpr size_t KEPT_SIZE =
    WATCH_TEXT_SIZE + 1024;  // "[1 bytes]" is longer than what it stands for
constexpr uint64_t LONGEST_ATTEMPT_MS = uint64_t{150} * 1000;  // with the commands of its end
constexpr size_t WAITING_SIZE = 128;
constexpr unsigned DOTS_MAX = 3;
constexpr long BUS_START = 1;
constexpr long BUS_END = 2;

watch_recording recording;
watch_screen screen;
watch_aliases aliases;
bool is_anonymous = false;
bool wants_recording = false;

// The seconds on the screen count from the press.
bool has_press = false;
bool attempt_runs = false;
uint64_t press_ms = 0;

char waiting[WAITING_SIZE];
unsigned dots = 0;
watch_told last_told;  // some things are said twice, once for hostapd and once for its clients

// A press during an attempt does not begin another one.
void _note_press(uint64_t now_ms)
{
    if (attempt_runs && now_ms - press_ms < LONGEST_ATTEMPT_MS)
        return;
    has_press = true;
    attempt_runs = true;
    press_ms = now_ms;
}

void _follow_attempt(const char *source, text_span text, uint64_t now_ms)
{
    watch_match found = {};
    if (strcmp(source, "exit") == 0 && watch_fits("^{number} daemon {number} ", text, &found))
        attempt_runs = false;
    if (strcmp(source, "bus") != 0 || !watch_fits("^{ \"{word}\": {rest} }$", text, &found))
        return;
    const text_span event = found.covered[0].text;
    const long action = watch_member_number(found.covered[1].text, "action", 0);
    if (event.is("gpio") || (event.is("wps_cli") && action == BUS_START) ||
        (event.is("wps") && action == BUS_START && !attempt_runs))
        _note_press(now_ms);
    else if (event.is("wps") && action == BUS_END)
        attempt_runs = false;
}

// Nine characters: seconds since the press, or blanks.
void _stamp(uint64_t now_ms, char (&stamp)[WATCH_STAMP_SIZE])
{
    const unsigned long long hundredths = (now_ms - press_ms + 5) / 10;
    if (!has_press)
        (void)snprintf(stamp, sizeof stamp, "%9s", "");
    else
        (void)snprintf(stamp, sizeof stamp, "%4llu.%02llu s", hundredths / 100, hundredths % 100);
}

void _show_waiting(uint64_t now_ms)
{
    if (waiting[0] == '\0') {
        screen.clear();
        return;
    }
    char stamp[WATCH_STAMP_SIZE];
    _stamp(now_ms, stamp);
    char text[WAITING_SIZE + DOTS_MAX + 1];
    (void)snprintf(text, sizeof text, "%s%.*s", waiting, static_cast<int>(dots), "...");
    screen.rewrite(stamp, text);
}

void _show(uint64_t now_ms, const char *source, const char *iface, text_span text)
{
    watch_told told = {};
    if (!watch_describe(source, text, &told))
        return;
    const char *name = told.iface[0] != '\0' ? told.iface : iface;
    const char *band = watch_band(name);
    copy_text(told.iface, band[0] != '\0' ? band : name);
    const bool is_same = last_told.who == told.who && strcmp(last_told.iface, told.iface) == 0 &&
                         strcmp(last_told.text, told.text) == 0;
    if (is_same && strcmp(told.who, "button") != 0)
        return;
    last_told = told;
    char stamp[WATCH_STAMP_SIZE];
    _stamp(now_ms, stamp);
    screen.line(stamp, told.who, told.iface, told.text);
    _show_waiting(now_ms);
}

// Tells on the screen, if there is one, and on standard error why the recording has ended.
void _tell_trouble(const char *trouble)
{
    screen.clear();
    (void)fprintf(stderr, "kelm-watch: %s\n", trouble);
}

}  // namespace

void watch_tell(const char *source, const char *iface, const char *text, size_t length)
{
    const watch_moment now = watch_now();
    const text_span line = {text, length < WATCH_TEXT_SIZE ? length : WATCH_TEXT_SIZE};

    static char kept_buffer[KEPT_SIZE];
    static char alias_buffer[KEPT_SIZE];
    text_out kept(kept_buffer);
    text_span named = {"", 0};
    watch_keep(source, line, is_anonymous ? &aliases : nullptr, &kept, &named);
    text_span told = kept.span();
    text_out aliased(alias_buffer);
    if (is_anonymous) {
        aliases.rewrite(told, &aliased);
        told = aliased.span();
    }

    const char *band = iface[0] != '\0' ? watch_band(iface) : watch_band_of(named);
    const char *trouble = recording.add(now, source, band, iface, told);
    _follow_attempt(source, told, now.ms);
    _show(now.ms, source, iface, told);
    if (trouble != nullptr)
        _tell_trouble(trouble);
}

void watch_waiting(const char *what)
{
    copy_text(waiting, what);
    dots = 0;
    _show_waiting(watch_now().ms);
}

void watch_tick()
{
    dots = dots % DOTS_MAX + 1;
    _show_waiting(watch_now().ms);
}

bool watch_recording_ended()
{
    return wants_recording && !recording.is_open();
}

bool watch_recording_failed()
{
    return recording.failed();
}

bool watch_open_outputs(const watch_options &options)
{
    // The reader of the screen may go, and a file may reach a limit that the user has set.
    (void)signal(SIGPIPE, SIG_IGN);
    (void)signal(SIGXFSZ, SIG_IGN);
    is_anonymous = options.anonymous;
    watch_take_band_options(options);
    screen.open(STDOUT_FILENO, options.quiet, options.no_colour);
    wants_recording = options.recording != nullptr;
    if (!wants_recording)
        return true;
    const recording_result result =
        recording.open(options.recording, options.limit_kib, options.anonymous, watch_now());
    if (result == recording_result::exists)
        (void)fprintf(stderr, "kelm-watch: %s is there already; name another file\n",
                      options.recording);
    else if (result == recording_result::failed)
        (void)fprintf(stderr, "kelm-watch: %s cannot be written: %s\n", options.recording,
                      strerror(errno));
    return result == recording_result::ok;
}

void watch_close_outputs()
{
    screen.clear();
    recording.close();
}

}  // namespace kelm

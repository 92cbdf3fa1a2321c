// SPDX-License-Identifier: ISC
// One write for each line, a limit, and never another user's file.
#include "watch/recording.h"

#include <cerrno>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelm {

namespace {

constexpr int VERSION = 1;
constexpr size_t ESCAPE_LENGTH = 6;  // "\u0000", for a byte
constexpr size_t FRAME_SIZE = 512;   // for the other members of a line
// A text may grow a little when its secrets are replaced.
constexpr size_t LINE_SIZE = (WATCH_TEXT_SIZE + 1024) * ESCAPE_LENGTH + FRAME_SIZE;
constexpr size_t LAST_LINE_SIZE = 256;
constexpr uint64_t MS_PER_S = 1000;
constexpr long NS_PER_MS = 1000000;

uint64_t _clock_ms(clockid_t clock)
{
    timespec now = {};
    (void)clock_gettime(clock, &now);  // both clocks are always there
    return static_cast<uint64_t>(now.tv_sec) * MS_PER_S +
           static_cast<uint64_t>(now.tv_nsec / NS_PER_MS);
}

// The control characters above ASCII, U+0080 to U+009F. Some terminals obey them.
bool _is_control(text_span character)
{
    const auto first = static_cast<uint8_t>(character.at[0]);
    if (character.length == 1)
        return first < 0x20 || first == 0x7f;
    return character.length == 2 && first == 0xc2 && static_cast<uint8_t>(character.at[1]) < 0xa0;
}

void _add_escape(uint8_t byte, text_out *out)
{
    char escape[ESCAPE_LENGTH + 1];
    (void)snprintf(escape, sizeof escape, "\\u%04x", byte);
    out->add(escape);
}

void _add_moment(watch_moment now, text_out *out)
{
    const auto seconds = static_cast<time_t>(now.wall_ms / MS_PER_S);
    tm parts = {};
    (void)gmtime_r(&seconds, &parts);
    char wall[32];
    (void)strftime(wall, sizeof wall, "%Y-%m-%dT%H:%M:%S", &parts);
    char text[96];
    (void)snprintf(text, sizeof text, R"("ms":%llu,"at":"%s.%03uZ")",
                   static_cast<unsigned long long>(now.ms), wall,
                   static_cast<unsigned>(now.wall_ms % MS_PER_S));
    out->add(text);
}

void _add_text_member(const char *name, text_span text, text_out *out)
{
    out->add(",\"");
    out->add(name);
    out->add("\":\"");
    watch_add_json(text, out);
    out->add('"');
}

void _add_line(watch_moment now, const char *source, const char *band, const char *iface,
               text_span text, text_out *out)
{
    out->add('{');
    _add_moment(now, out);
    _add_text_member("source", span_of(source), out);
    _add_text_member("band", span_of(band), out);
    if (iface[0] != '\0')
        _add_text_member("iface", span_of(iface), out);
    _add_text_member("text", text, out);
    out->add("}\n");
}

// Whether a file that is there already is empty and only ours.
bool _may_be_taken(int file)
{
    struct stat there = {};
    return fstat(file, &there) == 0 && S_ISREG(there.st_mode) && there.st_size == 0 &&
           there.st_nlink == 1 && there.st_uid == geteuid();
}

unique_fd _open_file(const char *path, bool *exists)
{
    constexpr int FLAGS = O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    constexpr mode_t OWNER_ALONE = 0600;
    unique_fd file(open(path, FLAGS | O_CREAT | O_EXCL, OWNER_ALONE));
    *exists = !file.valid() && errno == EEXIST;
    if (!*exists)
        return file;
    unique_fd there(open(path, FLAGS));
    if (!there.valid() || !_may_be_taken(there.get()) || fchmod(there.get(), OWNER_ALONE) != 0)
        return unique_fd();
    *exists = false;
    return there;
}

}  // namespace

watch_moment watch_now()
{
    return {_clock_ms(CLOCK_MONOTONIC), _clock_ms(CLOCK_REALTIME)};
}

void watch_add_json(text_span text, text_out *out)
{
    while (text.length > 0) {
        const size_t length = utf8_length(text);
        const size_t taken = length > 0 ? length : 1;
        const text_span character = {text.at, taken};
        if (length == 0 || (_is_control(character) && length == 1)) {
            _add_escape(static_cast<uint8_t>(text.at[0]), out);
        } else if (_is_control(character)) {
            _add_escape(static_cast<uint8_t>(text.at[1]), out);
        } else {
            if (text.at[0] == '"' || text.at[0] == '\\')
                out->add('\\');
            out->add(character);
        }
        text.at += taken;
        text.length -= taken;
    }
}

recording_result watch_recording::open(const char *path, unsigned limit_kib, bool anonymous,
                                       watch_moment now)
{
    bool exists = false;
    unique_fd file = _open_file(path, &exists);
    if (!file.valid())
        return exists ? recording_result::exists : recording_result::failed;
    file_.reset(file.release());
    limit_kib_ = limit_kib;
    room_ = uint64_t{limit_kib} * 1024 - LAST_LINE_SIZE;

    char buffer[FRAME_SIZE];
    text_out line(buffer);
    line.add(R"({"recording":"kelm","version":)");
    line.add_number(VERSION);
    line.add(',');
    _add_moment(now, &line);
    line.add(",\"program\":\"kelm-watch " KELM_VERSION "\",\"anonymous\":");
    line.add(anonymous ? "true}\n" : "false}\n");
    if (_write(line.span()) == nullptr)
        return recording_result::ok;
    return recording_result::failed;
}

const char *watch_recording::add(watch_moment now, const char *source, const char *band,
                                 const char *iface, text_span text)
{
    if (!is_open())
        return nullptr;
    char buffer[LINE_SIZE];
    text_out line(buffer);
    _add_line(now, source, band, iface, text, &line);
    if (line.span().length > room_)
        return _end_at_limit(now);
    return _write(line.span());
}

// If a line cannot be written whole, the recording ends, and the part that was written is removed.
const char *watch_recording::_write(text_span line)
{
    ssize_t written;
    do {
        written = ::write(file_.get(), line.at, line.length);
    } while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(line.length)) {
        room_ -= line.length < room_ ? line.length : room_;
        return nullptr;
    }
    const int reason = written < 0 ? errno : ENOSPC;
    const off_t end = lseek(file_.get(), 0, SEEK_END);
    if (written > 0 && end >= written)
        (void)(ftruncate(file_.get(), end - written) != 0);  // readers skip a line without end
    file_.reset();
    failed_ = true;
    errno = reason;
    (void)snprintf(trouble_, sizeof trouble_, "the recording ends here: %s", strerror(reason));
    return trouble_;
}

const char *watch_recording::_end_at_limit(watch_moment now)
{
    (void)snprintf(trouble_, sizeof trouble_,
                   "the limit of %u KiB is reached: nothing more is recorded", limit_kib_);
    char buffer[FRAME_SIZE];
    text_out line(buffer);
    _add_line(now, "watch", "", "", span_of(trouble_), &line);
    if (const char *trouble = _write(line.span()))
        return trouble;
    file_.reset();
    return trouble_;
}

}  // namespace kelm

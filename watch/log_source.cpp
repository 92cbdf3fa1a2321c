// SPDX-License-Identifier: ISC
// The daemon's log, if somebody keeps it: a file, a FIFO, or standard input. Lines of other
// programs are not told, but for those of the scripts for stock OpenWrt.
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/handle.h"
#include "watch/log_line.h"
#include "watch/source.h"
#include "watch/tell.h"

namespace kelm {

namespace {

constexpr int64_t LOOK_MS = 100;  // between looks at a file: no descriptor tells that it has grown
constexpr int64_t ABSENT_LOOK_MS = 1000;
constexpr size_t LINE_SIZE = 2048;
constexpr int READS_MAX = 16;  // pieces in one turn
constexpr size_t PIECE_SIZE = 1024;

const char *path = nullptr;
unique_fd log;
bool is_file = false;  // a regular file: reading it never waits
bool told_missing = false;
bool at_end = false;  // once true, what was in the file before the start is passed
dev_t device = 0;
ino_t inode = 0;
char line[LINE_SIZE];
size_t length = 0;
bool skipping = false;  // the rest of a line that was cut is left out

void _end_line()
{
    const watch_log_line read = watch_read_log_line({line, length});
    if (read.source != nullptr)
        watch_tell(read.source, "", read.text.at, read.text.length);
    length = 0;
}

void _take_bytes(const char *bytes, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        if (bytes[i] == '\n') {
            if (!skipping)
                _end_line();
            skipping = false;
        } else if (!skipping && length < sizeof line) {
            line[length++] = bytes[i];
        } else if (!skipping) {
            _end_line();
            skipping = true;
        }
    }
}

// False when nothing more is there. The end of a FIFO or of standard input closes it.
bool _read_piece()
{
    char piece[PIECE_SIZE];
    const ssize_t count = ::read(log.get(), piece, sizeof piece);
    if (count > 0)
        _take_bytes(piece, static_cast<size_t>(count));
    if (count == 0 && !is_file)
        log.reset();
    return count > 0;
}

void _read_some(int pieces)
{
    for (int i = 0; i < pieces && log.valid() && _read_piece(); ++i)
        watch_drain_wifi();
}

// Opens the file. The first time it is read from its end on; a new file under the same name is read
// from its start.
void _open_path()
{
    // A FIFO is opened for reading and writing: then it does not end when a writer goes. Neither
    // call waits for anybody.
    struct stat there = {};
    unique_fd opened(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (opened.valid() && ::fstat(opened.get(), &there) == 0 && S_ISFIFO(there.st_mode))
        opened.reset(::open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!opened.valid()) {
        at_end = true;
        return;
    }
    is_file = S_ISREG(there.st_mode);
    if (is_file && !at_end)
        (void)::lseek(opened.get(), 0, SEEK_END);
    at_end = true;
    device = there.st_dev;
    inode = there.st_ino;
    length = 0;
    skipping = false;
    log.reset(opened.release());
}

// A file that was emptied is read from its start. One that was moved aside is read to its end, then
// the new one is opened.
void _follow_log()
{
    struct stat there = {};
    const off_t at = ::lseek(log.get(), 0, SEEK_CUR);
    if (::fstat(log.get(), &there) == 0 && there.st_size < at)
        (void)::lseek(log.get(), 0, SEEK_SET);
    _read_some(READS_MAX);
    if (::stat(path, &there) == 0 && (there.st_dev != device || there.st_ino != inode)) {
        if (::fstat(log.get(), &there) == 0 && ::lseek(log.get(), 0, SEEK_CUR) >= there.st_size)
            _open_path();
    }
}

bool _is_standard_input()
{
    return path != nullptr && strcmp(path, "-") == 0;
}

void _open_log(const watch_options &options)
{
    path = options.log;
    if (path != nullptr && !_is_standard_input())
        _open_path();
    if (!_is_standard_input())
        return;
    struct stat there = {};
    log.reset(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
    is_file = ::fstat(log.get(), &there) == 0 && S_ISREG(there.st_mode);
}

size_t _log_descriptors(pollfd *set)
{
    if (!log.valid() || is_file)
        return 0;
    set[0] = {log.get(), POLLIN, 0};
    return 1;
}

void _take_log(const pollfd *set, size_t count)
{
    // Of standard input one piece: it may be anything, and the second read might wait.
    if (count > 0 && set[0].revents != 0)
        _read_some(_is_standard_input() ? 1 : READS_MAX);
}

int64_t _look_at_log(int64_t now_ms)
{
    if (path == nullptr)
        return INT64_MAX;
    if (_is_standard_input()) {
        if (is_file)
            _read_some(READS_MAX);
        return is_file ? now_ms + LOOK_MS : INT64_MAX;
    }
    if (!log.valid())
        _open_path();
    if (!log.valid() && !told_missing)
        watch_say("watch", "", "the log %s cannot be read: %s", path, strerror(errno));
    told_missing = !log.valid();
    if (log.valid() && is_file)
        _follow_log();
    return now_ms + (log.valid() && is_file ? LOOK_MS : ABSENT_LOOK_MS);
}

void _close_log()
{
    if (length > 0 && !skipping)
        _end_line();
    log.reset();
}

}  // namespace

const watch_source WATCH_LOG = {_open_log, _log_descriptors, _take_log, _look_at_log, _close_log};

}  // namespace kelm

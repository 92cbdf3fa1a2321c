// SPDX-License-Identifier: ISC
// hostapd and wpa_supplicant: each control socket that is there or appears is attached to. ATTACH
// and DETACH are all that is ever sent, and no answer is waited for.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/signals.h"
#include "core/text.h"
#include "core/trust.h"
#include "ctrl/wpa_ctrl.h"
#include "watch/bands.h"
#include "watch/queue.h"
#include "watch/source.h"
#include "watch/tell.h"

namespace kelm {

namespace {

constexpr int64_t LOOK_MS = 1000;         // between looks at the folders, for what inotify misses
constexpr int64_t HUNG_MS = 5000;         // without an answer to ATTACH: the daemon hangs
constexpr int64_t ASK_AGAIN_MS = 10'000;  // after a refusal
constexpr int64_t LOSS_TOLD_MS = 5000;    // at most once in this time for one socket
constexpr int64_t QUIET_MS = 1000;        // after a flood, before the daemon is asked anew
constexpr int ENTRIES_MAX = 1024;         // of one folder
constexpr int NOTES_MAX = 32;             // lines about sockets that are not used
constexpr int DRAIN_MAX = 256;            // events of one socket at a time
constexpr int TELL_MAX = 64;              // events told at a time
constexpr int TELL_BETWEEN_DRAINS = 4;
constexpr size_t QUEUE_SIZE = size_t{64} * 1024;
constexpr size_t IFACE_SIZE = 32;
constexpr size_t PATH_SIZE = sizeof sockaddr_un{}.sun_path;
constexpr mode_t WRITABLE_BY_OTHERS = S_IWGRP | S_IWOTH;
constexpr const char *USUAL_QUEUE_PATH = "/proc/sys/net/unix/max_dgram_qlen";
constexpr int USUAL_QUEUE = 10;

// Sockets in the folder that belong to no interface: the programs' global ones, devices that carry
// no network, and the clients' own sockets.
constexpr const char *PASSED_OVER[] = {"global", "p2p-dev-", "wpa_ctrl_"};

enum class state {
    closed,  // to be opened at the next look
    dead,    // the name is there, but nobody listens
    asking,  // ATTACH was sent, or will be
    attached,
    refused,
};

struct socket_folder {
    const char *source;
    const char *path;
};

socket_folder folders[] = {{"hostapd", nullptr}, {"station", nullptr}};

struct wifi_socket {
    const socket_folder *folder = nullptr;  // null: the place is free
    char iface[IFACE_SIZE] = {};
    dev_t device = 0;
    ino_t inode = 0;
    timespec made = {};
    unique_wpa_ctrl ctrl;
    state now = state::closed;
    bool sent = false;  // ATTACH was sent
    bool told_dead = false;
    bool told_hung = false;
    bool told_trouble = false;
    bool was_full = false;  // its queue was full: the daemon may have dropped us
    bool here = false;      // found in the present look at the folder
    int64_t asked_ms = 0;
    int64_t full_ms = 0;
    int64_t loss_told_ms = 0;
};

wifi_socket sockets[WATCH_WIFI_SOCKETS_MAX];
char queue_memory[QUEUE_SIZE];
watch_queue queue(queue_memory, sizeof queue_memory);
char datagram[WATCH_ROOM];
unique_fd changes;  // inotify on the folders; invalid where the kernel has none
int queue_length = USUAL_QUEUE;
int notes_told = 0;
bool has_heard = false;
bool told_too_many = false;
bool look_now = false;

// --- One socket ---

void _say(const wifi_socket &which, const char *what)
{
    watch_say("socket", which.iface, "%s %s %s", which.folder->source, which.iface, what);
}

void _path_of(const wifi_socket &which, char (&path)[PATH_SIZE])
{
    snprintf(path, sizeof path, "%s/%s", which.folder->path, which.iface);
}

// False: the daemon takes nothing now. The next look tries again.
bool _send_to_socket(const wifi_socket &which, const char *command)
{
    return wpa_ctrl_send(which.ctrl.get(), command, strlen(command)) == 0;
}

void _ask(wifi_socket &which, int64_t now_ms)
{
    which.now = state::asking;
    which.asked_ms = now_ms;
    which.sent = _send_to_socket(which, "ATTACH");
}

// A Wi-Fi daemon drops a client that takes nothing, and does not tell it. So attach again. Detach
// first: a client that is attached twice might get each event twice.
void _ask_anew(wifi_socket &which, int64_t now_ms)
{
    which.was_full = !_send_to_socket(which, "DETACH");
    if (!which.was_full && !_send_to_socket(which, "ATTACH"))
        _ask(which, now_ms);
}

void _open_socket(wifi_socket &which, int64_t now_ms)
{
    char path[PATH_SIZE];
    _path_of(which, path);
    errno = 0;
    which.ctrl.reset(wpa_ctrl_open(path));
    if (which.ctrl) {
        which.told_trouble = false;
        _ask(which, now_ms);
        return;
    }
    // When a daemon is killed, its socket's name stays, and nobody listens there.
    const int error = errno;
    which.now = error == ECONNREFUSED || error == ENOENT ? state::dead : state::closed;
    if (which.now == state::closed && !which.told_trouble) {
        watch_say("watch", which.iface, "%s %s: no connection: %s", which.folder->source,
                  which.iface, strerror(error));
        which.told_trouble = true;
    }
}

// Whether a daemon still listens on the socket. Nothing is sent to find out.
bool _is_alive(const wifi_socket &which)
{
    const unique_fd probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!probe.valid() || !which.ctrl)
        return true;  // it cannot be known
    const auto *to = reinterpret_cast<const sockaddr *>(&which.ctrl->dest);
    return ::connect(probe.get(), to, sizeof which.ctrl->dest) == 0 || errno != ECONNREFUSED;
}

void _look_at_socket(wifi_socket &which, int64_t now_ms)
{
    if (which.ctrl && !_is_alive(which)) {
        which.ctrl.reset();
        which.now = state::dead;
    }
    if (which.now == state::closed || which.now == state::dead)
        _open_socket(which, now_ms);
    if (which.now == state::dead && !which.told_dead) {
        _say(which, "gone");
        which.told_dead = true;
    }
    if (which.now == state::refused && now_ms - which.asked_ms >= ASK_AGAIN_MS)
        _ask(which, now_ms);
    if (which.now == state::asking && !which.sent)
        which.sent = _send_to_socket(which, "ATTACH");
    if (which.now == state::asking && !which.told_hung && now_ms - which.asked_ms >= HUNG_MS) {
        _say(which, "hung");
        which.told_hung = true;
    }
    if (which.was_full && which.now == state::attached && now_ms - which.full_ms >= QUIET_MS)
        _ask_anew(which, now_ms);
}

// --- What it says ---

void _take_answer(wifi_socket &which, const char *text, size_t length)
{
    if (which.now != state::asking)
        return;  // the answer to a DETACH, or to an ATTACH after a full queue
    const bool taken = length >= 2 && memcmp(text, "OK", 2) == 0;
    has_heard = true;
    _say(which, taken ? "attached" : "refuses");
    which.now = taken ? state::attached : state::refused;
    which.told_hung = false;
    which.told_dead = false;
}

// Tells an event without the level before it ("<3>"), as the Wi-Fi programs print it.
void _tell_event(const wifi_socket &which, const char *text, size_t length)
{
    char line[WATCH_ROOM + IFACE_SIZE];
    if (length > 7 && memcmp(text, "IFNAME=", 7) == 0) {
        const auto *blank = static_cast<const char *>(memchr(text, ' ', length));
        const size_t skipped = blank != nullptr ? static_cast<size_t>(blank + 1 - text) : 0;
        text += skipped;
        length -= skipped;
    }
    if (length > 0 && text[0] == '<') {
        const auto *end = static_cast<const char *>(memchr(text, '>', length < 5 ? length : 5));
        const size_t skipped = end != nullptr ? static_cast<size_t>(end + 1 - text) : 0;
        text += skipped;
        length -= skipped;
    }
    const int head = snprintf(line, sizeof line, "%s: ", which.iface);
    if (length > sizeof line - static_cast<size_t>(head))
        length = sizeof line - static_cast<size_t>(head);
    memcpy(line + head, text, length);
    watch_tell(which.folder->source, which.iface, line, static_cast<size_t>(head) + length);
}

void _tell_first()
{
    uint32_t place;
    const char *text;
    size_t length;
    if (!queue.front(&place, &text, &length))
        return;
    wifi_socket &which = sockets[place];
    if (which.folder != nullptr && wpa_ctrl_is_event(text, length))
        _tell_event(which, text, length);
    else if (which.folder != nullptr)
        _take_answer(which, text, length);
    queue.pop();
}

void _note_full(wifi_socket &which)
{
    const int64_t now_ms = kelm_monotonic_ms();
    which.was_full = true;
    which.full_ms = now_ms;
    if (which.loss_told_ms != 0 && now_ms - which.loss_told_ms < LOSS_TOLD_MS)
        return;
    which.loss_told_ms = now_ms;
    watch_say("watch", which.iface,
              "%s %s: more events came at once than its queue holds: some may be lost",
              which.folder->source, which.iface);
}

void _drain(uint32_t place)
{
    wifi_socket &which = sockets[place];
    int taken = 0;
    while (taken < DRAIN_MAX && queue.has_room_for(sizeof datagram)) {
        size_t length = sizeof datagram;
        if (wpa_ctrl_recv(which.ctrl.get(), datagram, &length) != 0)
            break;
        (void)queue.push(place, datagram, length);
        ++taken;
    }
    if (taken > queue_length)
        _note_full(which);
}

void _tell_some()
{
    for (int told = 0; told < TELL_MAX && !queue.empty(); ++told) {
        _tell_first();
        if (told % TELL_BETWEEN_DRAINS == 0)
            watch_drain_wifi();
    }
}

// Tells all that waits in the queue, before a socket's place is used for another one.
void _tell_all()
{
    while (!queue.empty())
        _tell_first();
}

void _leave(wifi_socket &which)
{
    if (which.ctrl)
        (void)_send_to_socket(which, "DETACH");
    which.ctrl.reset();
    which.folder = nullptr;
}

// --- The folders ---

// The user besides root whose sockets count: the one whom the Wi-Fi daemon runs as. It owns the
// folder, if nobody but root or ourselves can write to the folder above it.
uid_t _trusted_user_of(int folder)
{
    struct stat own = {};
    struct stat above = {};
    if (::fstat(folder, &own) != 0 || ::fstatat(folder, "..", &above, 0) != 0)
        return 0;
    const bool given =
        kelm_is_root_or_self(above.st_uid) && (above.st_mode & WRITABLE_BY_OTHERS) == 0;
    const bool kept = (own.st_mode & WRITABLE_BY_OTHERS) == 0;
    return given && kept ? own.st_uid : 0;
}

// Whether only users who count can have put a socket into the folder.
bool _is_safe(int folder)
{
    struct stat own = {};
    if (::fstat(folder, &own) != 0)
        return false;
    const uid_t trusted = _trusted_user_of(folder);
    const bool theirs = kelm_is_root_or_self(own.st_uid) || own.st_uid == trusted;
    return theirs && ((own.st_mode & S_IWOTH) == 0 || (own.st_mode & S_ISVTX) != 0);
}

bool _is_interface_name(const char *name)
{
    const size_t length = strlen(name);
    if (length == 0 || length >= IFACE_SIZE)
        return false;
    for (const char *prefix : PASSED_OVER) {
        if (starts_with(name, prefix))
            return false;
    }
    for (size_t i = 0; i < length; ++i) {
        if (name[i] <= ' ' || name[i] > '~')
            return false;
    }
    return true;
}

bool _is_same_socket(const wifi_socket &which, const struct stat &there)
{
    return which.device == there.st_dev && which.inode == there.st_ino &&
           which.made.tv_sec == there.st_mtim.tv_sec && which.made.tv_nsec == there.st_mtim.tv_nsec;
}

wifi_socket *_place_of(const socket_folder &folder, const char *name)
{
    for (wifi_socket &which : sockets) {
        if (which.folder == &folder && strcmp(which.iface, name) == 0)
            return &which;
    }
    return nullptr;
}

wifi_socket *_free_place()
{
    for (wifi_socket &which : sockets) {
        if (which.folder == nullptr)
            return &which;
    }
    if (!told_too_many) {
        watch_say("watch", "", "more than %zu control sockets: the others are passed over",
                  WATCH_WIFI_SOCKETS_MAX);
        told_too_many = true;
    }
    return nullptr;
}

void _note_stranger(const socket_folder &folder, const char *name, uid_t owner, bool safe)
{
    if (notes_told++ >= NOTES_MAX)
        return;
    if (!safe)
        watch_say("watch", "", "%s %s is passed over: others may write to its folder",
                  folder.source, name);
    else
        watch_say("watch", "", "%s %s is passed over: it belongs to user %u", folder.source, name,
                  static_cast<unsigned>(owner));
}

void _take_up(const socket_folder &folder, const char *name, const struct stat &there)
{
    wifi_socket *which = _place_of(folder, name);
    if (which != nullptr && _is_same_socket(*which, there)) {
        which->here = true;
        return;
    }
    if (which != nullptr) {
        _tell_all();
        if (!which->told_dead)
            _say(*which, "gone");
        _leave(*which);
    } else {
        which = _free_place();
    }
    if (which == nullptr)
        return;
    _tell_all();  // what waits for the socket before must not count for this one
    *which = {};
    which->folder = &folder;
    copy_text(which->iface, name);
    which->device = there.st_dev;
    which->inode = there.st_ino;
    which->made = there.st_mtim;
    which->now = state::closed;
    which->here = true;
}

struct folder_closer {
    void operator()(DIR *folder) const { (void)::closedir(folder); }
};
using unique_folder = std::unique_ptr<DIR, folder_closer>;

// On stock OpenWrt a link stands beside each interface's socket. Its name tells the band.
void _learn_band(int folder, const char *link)
{
    char name[IFACE_SIZE];
    const ssize_t length = ::readlinkat(folder, link, name, sizeof name - 1);
    const char *band = watch_band(link);
    if (length <= 0 || band[0] == '\0')
        return;
    name[length] = '\0';
    const char *last = strrchr(name, '/');
    watch_set_band(last != nullptr ? last + 1 : name, band);
}

void _look_into(const socket_folder &from)
{
    // Again at each look: the folder may have been replaced. For the same folder this changes
    // nothing.
    if (changes.valid())
        (void)::inotify_add_watch(changes.get(), from.path,
                                  IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ONLYDIR);
    const unique_folder folder(::opendir(from.path));
    if (!folder)
        return;
    const int fd = ::dirfd(folder.get());
    const bool safe = _is_safe(fd);
    const uid_t trusted = _trusted_user_of(fd);
    int entries = 0;
    while (const dirent *entry = ::readdir(folder.get())) {
        struct stat there = {};
        if (++entries > ENTRIES_MAX)
            return;
        if (!_is_interface_name(entry->d_name) ||
            ::fstatat(fd, entry->d_name, &there, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        const bool theirs = kelm_is_root_or_self(there.st_uid) || there.st_uid == trusted;
        if (S_ISLNK(there.st_mode) && safe && theirs)
            _learn_band(fd, entry->d_name);
        if (!S_ISSOCK(there.st_mode))
            continue;
        if (safe && theirs)
            _take_up(from, entry->d_name, there);
        else
            _note_stranger(from, entry->d_name, there.st_uid, safe);
    }
}

void _look_for_sockets(int64_t now_ms)
{
    for (wifi_socket &which : sockets)
        which.here = false;
    for (const socket_folder &folder : folders)
        _look_into(folder);
    for (wifi_socket &which : sockets) {
        if (which.folder == nullptr)
            continue;
        if (which.here) {
            _look_at_socket(which, now_ms);
            continue;
        }
        _tell_all();
        if (!which.told_dead)
            _say(which, "gone");
        _leave(which);
    }
}

int _usual_queue_length()
{
    const unique_file file(::fopen(USUAL_QUEUE_PATH, "re"));
    char text[16] = "";
    if (!file || ::fgets(text, sizeof text, file.get()) == nullptr)
        return USUAL_QUEUE;
    const long length = ::strtol(text, nullptr, 10);
    return length > 0 && length < DRAIN_MAX ? static_cast<int>(length) : DRAIN_MAX - 1;
}

// --- What the loop calls ---

void _open_all(const watch_options &options)
{
    folders[0].path = options.hostapd_folder;
    folders[1].path = options.supplicant_folder;
    queue_length = _usual_queue_length();
    changes.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
}

size_t _wifi_descriptors(pollfd *set)
{
    size_t count = 0;
    set[count++] = {changes.get(), POLLIN, 0};
    for (const wifi_socket &which : sockets) {
        if (which.folder != nullptr && which.ctrl)
            set[count++] = {wpa_ctrl_get_fd(which.ctrl.get()), POLLIN, 0};
    }
    return count;
}

void _take_wifi(const pollfd *set, size_t)
{
    if (set[0].revents != 0) {
        char events[WATCH_ROOM];
        (void)(::read(changes.get(), events, sizeof events) < 0);  // the look finds the change
        look_now = true;
    }
    watch_drain_wifi();
    _tell_some();
}

int64_t _look_at_wifi(int64_t now_ms)
{
    static int64_t next_ms = 0;
    if (look_now || now_ms >= next_ms) {
        look_now = false;
        next_ms = now_ms + LOOK_MS;
        _look_for_sockets(now_ms);
    }
    return queue.empty() ? next_ms : now_ms;
}

}  // namespace

const watch_source WATCH_CTRL = {_open_all, _wifi_descriptors, _take_wifi, _look_at_wifi,
                                 watch_leave_wifi};

void watch_leave_wifi()
{
    watch_drain_wifi();
    _tell_all();
    for (wifi_socket &which : sockets) {
        if (which.folder != nullptr)
            _leave(which);
    }
    look_now = true;
}

void watch_drain_wifi()
{
    for (uint32_t place = 0; place < WATCH_WIFI_SOCKETS_MAX; ++place) {
        if (sockets[place].folder != nullptr && sockets[place].ctrl)
            _drain(place);
    }
}

bool watch_has_heard_wifi()
{
    return has_heard;
}

}  // namespace kelm

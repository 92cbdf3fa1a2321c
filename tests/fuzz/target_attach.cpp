// SPDX-License-Identifier: ISC
// Way in: what a Wi-Fi daemon answers while the daemon attaches, asks and detaches.
//
// An input's first byte is the room for a reply, the rest of its first line the fates of what is
// sent: "o" sent, "a" busy, anything else lost. Each further line is what a wait meets: "d" and a
// datagram with "|" for line feeds, "i" a signal, "e" an error, "r" an error of the reading,
// anything else no answer in time; and so it goes on after the last line.
//
// Properties: attached exactly when the first datagram that is no event says "OK\n"; events reach
// the callback whole and terminated; whatever happens, no descriptor and no path is left behind.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "ctrl/wpa_ctrl.h"
#include "platform/rtk/control.h"
#include "platform/rtk/events.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" ssize_t __wrap_send(int, const void *, size_t length, int);
extern "C" ssize_t __wrap_recv(int, void *buffer, size_t length, int);
extern "C" int __wrap_poll(pollfd *set, nfds_t, int timeout);
extern "C" int __wrap_clock_gettime(clockid_t, timespec *now);

namespace {

constexpr const char *FOLDER = "/var/run/hostapd";
constexpr const char *SOCKET = "/var/run/hostapd/wlan1";
constexpr size_t ATTACH_ROOM = 10;
// The clock moves a second with each look at it.
constexpr int BUSY_LIMIT = 6;
constexpr size_t EVENTS_LIMIT = 30;

std::string sends;
size_t sends_used = 0;
std::vector<std::string> waits;
size_t waits_used = 0;
time_t clock_s = 1000;
std::vector<std::string> events_passed;

// --- The peer's script, read by the wrapped calls, and by the expectation beside them ---

char next_fate()
{
    return sends_used < sends.size() ? sends[sends_used++] : 'o';
}

const std::string &next_wait()
{
    static const std::string silence;
    return waits_used < waits.size() ? waits[waits_used] : silence;
}

bool is_event(const std::string &text)
{
    return text.compare(0, 1, "<") == 0 || text.compare(0, 7, "IFNAME=") == 0;
}

struct outcome {
    int result;
    std::string reply;
    std::vector<std::string> events;
};

// What one request is to come to, room bytes for a reply given. Reads the script from where it is.
outcome expect_request(size_t room)
{
    outcome expected = {-1, "", {}};
    size_t at = sends_used;
    for (int busy = 0; at < sends.size() && sends[at] == 'a'; ++at) {
        if (++busy == BUSY_LIMIT)
            return expected;
    }
    if (at < sends.size() && sends[at] != 'o')
        return expected;
    for (size_t i = waits_used; i < waits.size(); ++i) {
        const char what = waits[i].empty() ? ' ' : waits[i][0];
        if (what == 'i')
            continue;
        if (what == 'e' || what == 'r')
            return expected;
        if (what != 'd')
            break;
        const std::string text = waits[i].substr(1, room);
        if (!is_event(text)) {
            expected.result = 0;
            expected.reply = text;
            return expected;
        }
        expected.events.push_back(text.size() == room ? text.substr(0, room - 1) : text);
        if (expected.events.size() == EVENTS_LIMIT)
            break;
    }
    expected.result = -2;
    return expected;
}

// --- The world that must stay as it is ---

int lowest_free_descriptor()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    PROPERTY(fd >= 0);
    close(fd);
    return fd;
}

size_t client_paths()
{
    size_t count = 0;
    DIR *folder = opendir("/tmp");
    PROPERTY(folder != nullptr);
    while (const dirent *entry = readdir(folder))
        count += strncmp(entry->d_name, "wpa_ctrl_", 9) == 0 ? 1 : 0;
    closedir(folder);
    return count;
}

void listen_once()
{
    static int peer = -1;
    if (peer >= 0)
        return;
    (void)mkdir(FOLDER, 0755);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, SOCKET, strlen(SOCKET));
    peer = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    PROPERTY(bind(peer, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0);
}

// --- The dialogues ---

void note_event(char *text, size_t length)
{
    PROPERTY(text[length] == '\0');
    events_passed.emplace_back(text, length);
}

void check_attach()
{
    const outcome expected = expect_request(ATTACH_ROOM);
    const bool attached = expected.result == 0 && expected.reply == "OK\n";
    const int fd = kelm::rtk_wpas_sock_init(kelm::KELM_BAND_2G);
    PROPERTY((fd >= 0) == attached);
    PROPERTY(client_paths() == (attached ? 1 : 0));
    kelm::rtk_wpas_sock_deinit(kelm::KELM_BAND_2G, fd);
}

void check_request(size_t room)
{
    const kelm::unique_wpa_ctrl ctrl(kelm::wpa_ctrl_open(SOCKET));
    PROPERTY(ctrl != nullptr);
    const outcome expected = expect_request(room);
    const std::unique_ptr<char, kelm::malloc_deleter> reply(static_cast<char *>(malloc(room)));
    size_t length = room;
    events_passed.clear();
    PROPERTY(wpa_ctrl_request(ctrl.get(), "STATUS", 6, reply.get(), &length, note_event) ==
             expected.result);
    PROPERTY(events_passed == expected.events);
    if (expected.result == 0)
        PROPERTY(std::string(reply.get(), length) == expected.reply);
}

}  // namespace

extern "C" ssize_t __wrap_send(int, const void *, size_t length, int)
{
    switch (next_fate()) {
    case 'o':
        return static_cast<ssize_t>(length);
    case 'a':
        errno = EAGAIN;
        return -1;
    default:
        errno = ECONNREFUSED;
        return -1;
    }
}

extern "C" int __wrap_poll(pollfd *set, nfds_t, int timeout)
{
    PROPERTY(timeout >= 0);
    const std::string &wait = next_wait();
    switch (wait.empty() ? ' ' : wait[0]) {
    case 'd':
    case 'r':
        set[0].revents = POLLIN;
        return 1;
    case 'i':
        ++waits_used;
        errno = EINTR;
        return -1;
    case 'e':
        ++waits_used;
        errno = ENOMEM;
        return -1;
    default:
        ++waits_used;
        return 0;
    }
}

extern "C" ssize_t __wrap_recv(int, void *buffer, size_t length, int)
{
    const std::string &wait = next_wait();
    ++waits_used;
    if (wait.empty() || wait[0] != 'd') {
        errno = ECONNREFUSED;
        return -1;
    }
    const std::string text = wait.substr(1, length);
    memcpy(buffer, text.data(), text.size());
    return static_cast<ssize_t>(text.size());
}

extern "C" int __wrap_clock_gettime(clockid_t, timespec *now)
{
    *now = {clock_s++, 0};
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kelm_fuzz::input input(data, size);
    listen_once();
    kelm_fuzz::reset_device(0);
    PROPERTY(kelm::kelm_backup_run_mode() == 0);
    PROPERTY(kelm::kelm_create_session(2) == 0);
    kelm::rtk_update_interface();
    const size_t room = 1 + input.byte();
    sends = input.line();
    sends_used = 0;
    waits.clear();
    waits_used = 0;
    while (!input.empty()) {
        waits.push_back(input.line());
        std::replace(waits.back().begin(), waits.back().end(), '|', '\n');
    }

    const int lowest = lowest_free_descriptor();
    check_attach();
    check_request(room);
    PROPERTY(lowest_free_descriptor() == lowest);
    PROPERTY(client_paths() == 0);
    (void)kelm_fuzz::take_log();
    return 0;
}

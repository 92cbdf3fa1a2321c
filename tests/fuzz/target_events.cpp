// SPDX-License-Identifier: ISC
// Way in: whole sequences of control-interface events, requests, signals and changing files,
// through the daemon's own main loop.
//
// An input's first line chooses the device, each further line is a step: "0" to "3" and an event's
// text, "b" a button, "p" and a PIN, "c" a cancel, "t" and a byte of seconds, "T" and a byte of
// minutes back, "y" on to the end of 32-bit seconds, "s" SIGTERM, "u" SIGUSR1, "f", a file's letter
// and its text with "|" for line feeds, anything else a second without a packet.
//
// Properties: those of device.h after each step and at the end; each command is one of the daemon's
// own with as many words as it has; an event changes its own band alone; an unknown event changes
// nothing; the time-out ends what has no other end.
#include <algorithm>
#include <cstring>

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include "core/session.h"
#include "daemon/lifecycle.h"
#include "daemon/mainloop.h"
#include "ipc/bus.h"
#include "ipc/event_socks.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int __wrap_ppoll(pollfd *set, nfds_t count, const timespec *, const sigset_t *);
extern "C" ssize_t __wrap_recvfrom(int fd, void *buffer, size_t length, int, sockaddr *,
                                   socklen_t *);

namespace {

constexpr int32_t LONG_AFTER = 10 * kelm::WPS_TIMEOUT_S;
constexpr int64_t NEARLY_2038 = 0x7fffffff - 1100;  // from the start, where 32-bit seconds end

kelm_fuzz::input *script = nullptr;
std::string packet;
int packet_fd = -1;
int idle_passes = 0;

void put_step_file(const std::string &step)
{
    const size_t file = step.size() > 1 ? static_cast<uint8_t>(step[1] - 'a') : 0;
    if (file >= kelm_fuzz::DEVICE_FILES)
        return;
    std::string text = step.substr(2);
    std::replace(text.begin(), text.end(), '|', '\n');
    kelm_fuzz::put_device_file(file, text);
}

void request(uint32_t code, uint32_t action, uint32_t method, const std::string &pin)
{
    kelm::wps_listen_event_t event = {};
    event.code = code;
    event.action = action;
    event.method = method;
    memcpy(event.pin, pin.data(), std::min(pin.size(), sizeof event.pin));
    kelm::wps_ibus_set_msg(event);
}

// One step. True when a packet waits on a band's socket.
bool take_step(const std::string &step)
{
    switch (step.empty() ? ' ' : step[0]) {
    case '0':
    case '1':
    case '2':
    case '3':
        packet = step.substr(1);
        packet_fd = kelm_fuzz::EVENT_FD + step[0] - '0';
        return true;
    case 'b':
        request(kelm::IBUS_EVENT_BUTTON, 0, 0, "");
        return false;
    case 'p':
        request(kelm::IBUS_EVENT_WPS_CLI, 1, kelm::IBUS_WPS_METHOD_PIN, step.substr(1));
        return false;
    case 'c':
        request(kelm::IBUS_EVENT_WPS_CLI, 2, kelm::IBUS_WPS_METHOD_PBC, "");
        return false;
    case 't':
        kelm_fuzz::move_time(step.size() > 1 ? static_cast<uint8_t>(step[1]) : 1);
        return false;
    case 'T':
        kelm_fuzz::move_time(-60 * (step.size() > 1 ? static_cast<uint8_t>(step[1]) : 1));
        return false;
    case 'y':
        kelm_fuzz::move_time(NEARLY_2038);
        return false;
    case 's':
        kelm::_kelm_handle_signal(SIGTERM);
        return false;
    case 'u':
        kelm::_kelm_handle_signal(SIGUSR1);
        kelm::kelm_dbg_level = kelm::KELM_LOG_DETAIL;
        return false;
    case 'f':
        if (step.size() > 2)
            put_step_file(step);
        return false;
    default:
        kelm_fuzz::move_time(1);
        return false;
    }
}

// After the last step: a pass that takes its request, then long enough for any attempt to have
// timed out, then the end.
void end_script()
{
    if (idle_passes++ < 2) {
        kelm_fuzz::move_time(idle_passes == 2 ? LONG_AFTER : 1);
        return;
    }
    PROPERTY(kelm::kelm_get_global_wpsflag_bit(kelm::KELM_GFLAG_WPS_RUNNING) == 0);
    kelm::kelm_set_global_wpsflag_bit(kelm::KELM_GFLAG_TERMINATE);
}

}  // namespace

extern "C" int __wrap_ppoll(pollfd *set, nfds_t count, const timespec *, const sigset_t *)
{
    if (set == nullptr)
        return 0;
    kelm_fuzz::check_sessions();
    if (script->empty()) {
        end_script();
        return 0;
    }
    if (!take_step(script->line()))
        return 0;
    int ready = 0;
    for (nfds_t i = 0; i < count; ++i) {
        set[i].revents = set[i].fd == packet_fd ? POLLIN : 0;
        ready += set[i].revents != 0 ? 1 : 0;
    }
    return ready;
}

extern "C" ssize_t __wrap_recvfrom(int fd, void *buffer, size_t length, int, sockaddr *,
                                   socklen_t *)
{
    PROPERTY(fd == packet_fd);
    const size_t taken = std::min(length, packet.size());
    memcpy(buffer, packet.data(), taken);
    return static_cast<ssize_t>(taken);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kelm_fuzz::input input(data, size);
    kelm_fuzz::reset_device(input.choice(kelm_fuzz::PRESETS));
    (void)input.line();
    script = &input;
    idle_passes = 0;
    if (!kelm_fuzz::start_device())
        return 0;
    PROPERTY(kelm::kelm_mainloop() == 0);
    kelm_fuzz::check_sessions();
    kelm_fuzz::check_files();
    kelm::kelm_leave();
    (void)kelm_fuzz::take_log();
    (void)kelm_fuzz::take_commands();
    return 0;
}

// SPDX-License-Identifier: ISC
// The recording platform table. Its calls go to the file of the stand-ins' calls, so that the order
// between the two shows.
#include "tests/unit/recording_ops.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/world/world.h"

namespace kelm_test {

ops_answers answers;

namespace {

constexpr const char *COMMAND_LOG = "/mnt/log/commands";
constexpr int NEW_SOCKET = -2;

int peers[kelm::KELM_BAND_COUNT] = {-1, -1, -1, -1};

void note(const std::string &call)
{
    const std::string line = "ops " + call + "\n";
    const int fd = open(COMMAND_LOG, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        perror(COMMAND_LOG);
        abort();
    }
    close(fd);
    if (answers.on_call)
        answers.on_call(call);
}

std::string quoted(const char *text)
{
    return "\"" + std::string(text) + "\"";
}

std::string with_band(const char *slot, int band)
{
    return std::string(slot) + "(" + std::to_string(band) + ")";
}

int start_worker()
{
    note("start_worker()");
    return answers.start_worker;
}

void kill_worker()
{
    note("kill_worker()");
}

int event_sock_init(int band)
{
    note(with_band("event_sock_init", band));
    if (answers.event_sock_init[band] != NEW_SOCKET)
        return answers.event_sock_init[band];
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) != 0) {
        perror("socketpair");
        abort();
    }
    if (peers[band] >= 0)
        close(peers[band]);
    peers[band] = ends[1];
    return ends[0];
}

void event_sock_deinit(int band, int fd)
{
    note("event_sock_deinit(" + std::to_string(band) + ", " + std::to_string(fd) + ")");
}

int process_bus_msg(const kelm::wps_listen_event_t *event)
{
    uint32_t words[9];
    memcpy(words, event, sizeof words);
    size_t count = sizeof words / sizeof words[0];
    while (count > 0 && words[count - 1] == 0)
        --count;
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char word[12];
        snprintf(word, sizeof word, i == 0 ? "%x" : " %x", words[i]);
        text += word;
    }
    note("process_bus_msg(" + text + ")");
    return answers.process_bus_msg;
}

int process_event_msg(int band, char *text, int length)
{
    note("process_event_msg(" + std::to_string(band) + ", " + quoted(text) + ", " +
         std::to_string(length) + ")");
    return answers.process_event_msg;
}

const char *get_sta_mac(int band)
{
    note(with_band("get_sta_mac", band));
    return answers.sta_mac[band];
}

int patching_back(int ap_band, int sta_band, const kelm::kelm_rootap_info *record)
{
    note("patching_back(" + std::to_string(ap_band) + ", " + std::to_string(sta_band) + ", " +
         (record != nullptr ? quoted(record->ssid) : "none") + ")");
    return kelm::kelm_is_band(ap_band) ? answers.patching_back[ap_band] : -1;
}

int set_ap_pin(int band, const char *pin)
{
    note("set_ap_pin(" + std::to_string(band) + ", " + (pin != nullptr ? quoted(pin) : "none") +
         ")");
    return 0;
}

int wps_cancel()
{
    note("wps_cancel()");
    return 0;
}

void band_tick(int band)
{
    note(with_band("band_tick", band));
}

int parse_rootap_msg(const char *message, size_t length, kelm::kelm_worker_rootapinfo *rootap,
                     int *band)
{
    note("parse_rootap_msg(" + quoted(message) + ", " + std::to_string(length) + ")");
    *rootap = answers.rootap;
    *band = answers.rootap_band;
    return answers.parse_rootap_msg;
}

int get_wps_credentials(int band, kelm::kelm_rootap_info *)
{
    note(with_band("get_wps_credentials", band));
    return answers.get_wps_credentials;
}

void never_called()
{
    fputs("a slot without a meaning was called\n", stderr);
    abort();
}

}  // namespace

void reset_ops()
{
    answers = {};
    for (int &peer : peers) {
        if (peer >= 0)
            close(peer);
        peer = -1;
    }
}

int peer_of(int band)
{
    return peers[band];
}

std::vector<std::string> recorded_calls()
{
    return recorded_commands();
}

}  // namespace kelm_test

const kelm::kelm_platform_ops kelm::kelm_ops = {
    "recording",
    kelm_test::start_worker,
    kelm_test::kill_worker,
    kelm_test::event_sock_init,
    kelm_test::event_sock_deinit,
    kelm_test::never_called,
    kelm_test::process_bus_msg,
    kelm_test::process_event_msg,
    kelm_test::get_sta_mac,
    kelm_test::patching_back,
    kelm_test::never_called,
    kelm_test::set_ap_pin,
    kelm_test::wps_cancel,
    kelm_test::band_tick,
    kelm_test::parse_rootap_msg,
    kelm_test::never_called,
    kelm_test::get_wps_credentials,
};

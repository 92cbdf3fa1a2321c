// SPDX-License-Identifier: ISC
// Command lines without a shell: cut into words, compared with what the daemon may run, answered.
//
// Stands behind core/exec.cpp, at the calls by which it starts a shell and waits for it.
#include <algorithm>
#include <cstring>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"

namespace {

constexpr pid_t PRETENDED_CHILD = 0x7ffffff0;
constexpr size_t COMMANDS_KEPT = 1000;

// All that the daemon runs. "*" is one word from outside; "?" one that may be absent, at the end;
// "@" the interface of a band, no word at all for an access point of the bands that have none.
const char *const ALLOWED[] = {
    "hostapd_cli -p /var/run/hostapd -i @ wps_pbc",
    "hostapd_cli -p /var/run/hostapd -i @ wps_pin any ?",
    "hostapd_cli -p /var/run/hostapd -i @ -- wps_pin any *",
    "hostapd_cli -p /var/run/hostapd -i @ wps_ap_pin disable",
    "hostapd_cli -p /var/run/hostapd -i @ wps_ap_pin set ?",
    "hostapd_cli -p /var/run/hostapd -i @ -- wps_ap_pin set *",
    "hostapd_cli -p /var/run/hostapd -i @ wps_cancel",
    "wpa_cli -p /var/run/wpa_supplicant -i @ wps_pbc",
    "wpa_cli -p /var/run/wpa_supplicant -i @ wps_pbc multi_ap=1",
    "wpa_cli -p /var/run/wpa_supplicant -i @ wps_pbc multi_ap=2",
    "wpa_cli -p /var/run/wpa_supplicant -i @ wps_cancel",
    "killall wpa_cli",
    "nvram get multiap_mode",
    "/usr/bin/wifi scan *",
    "/usr/bin/wifi getscanresult *",
    "sleep 1",
    "ubus send wps *",
    "/etc/init.d/wps config_wifi",
    "/etc/init.d/wps mesh_config_wifi",
    "/etc/init.d/wps re_kelm_info",
    "/etc/init.d/wps restart",
    "/etc/init.d/wifi force_restart",
    "/etc/init.d/wifi restart_from_wps",
    "/etc/init.d/wifi restart",
    "touch *",
    "rm *",
    "cp * *",
};

const char *const INTERFACES[] = {"wlan0", "wlan1", "wlan0-vxd", "wlan1-vxd", "-vxd"};

std::vector<std::string> commands;
std::string output;
int output_fd = -1;

bool is_interface(const std::string &word)
{
    return std::find(std::begin(INTERFACES), std::end(INTERFACES), word) != std::end(INTERFACES);
}

bool matches(const std::vector<std::string> &words, const std::string &pattern)
{
    size_t at = 0;
    for (size_t from = 0; from < pattern.size();) {
        const size_t end = std::min(pattern.find(' ', from), pattern.size());
        const std::string wanted = pattern.substr(from, end - from);
        from = end + 1;
        if (at == words.size())
            return wanted == "?";
        if (wanted == "@") {
            at += is_interface(words[at]) ? 1 : 0;
            continue;
        }
        const bool any = wanted == "*" || wanted == "?";
        // A word from outside must not turn into an option of the program that gets it.
        const bool guarded = !any || words[at].empty() || words[at][0] != '-' ||
                             std::count(words.begin(), words.end(), "--") == 1;
        if (!guarded || (!any && words[at] != wanted))
            return false;
        ++at;
    }
    return at == words.size();
}

bool is_allowed(const std::vector<std::string> &words)
{
    return std::any_of(std::begin(ALLOWED), std::end(ALLOWED),
                       [&words](const char *pattern) { return matches(words, pattern); });
}

// What the commands on files do; the others are answered without an effect.
void carry_out(const std::vector<std::string> &words)
{
    if (words[0] == "rm")
        kelm_fuzz::remove_file(words[1].c_str());
    else if (words[0] == "cp")
        kelm_fuzz::put_file(words[2].c_str(), kelm_fuzz::get_file(words[1].c_str()));
}

// The one redirection that the daemon writes: a number into its result file.
bool is_result_line(const std::string &command)
{
    for (const char *number : {"-1", "0", "1"}) {
        if (command != std::string("echo ") + number + " > /tmp/wps_result")
            continue;
        kelm_fuzz::put_file("/tmp/wps_result", std::string(number) + "\n");
        return true;
    }
    return false;
}

void judge(const char *command)
{
    if (is_result_line(command))
        return;
    std::vector<std::string> words;
    PROPERTY(kelm_fuzz::shell_words(command, &words));
    PROPERTY(is_allowed(words));
    if (commands.size() < COMMANDS_KEPT)
        commands.push_back(command);
    carry_out(words);
}

// Characters that mean something to a shell outside quotes.
bool is_special(char c)
{
    return strchr("|&;<>()$`\"\n\t\r*?[]#~!{}\\", c) != nullptr;
}

}  // namespace

extern "C" int __wrap_posix_spawn(pid_t *child, const char *path,
                                  const posix_spawn_file_actions_t *, const posix_spawnattr_t *,
                                  char *const words[], char *const[]);
extern "C" int __wrap_posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t *, int from, int);
extern "C" pid_t __wrap_waitpid(pid_t child, int *status, int options);
extern "C" unsigned __wrap_sleep(unsigned seconds);
extern "C" unsigned __real_sleep(unsigned seconds);

extern "C" int __wrap_posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t *, int from, int)
{
    output_fd = from;
    return 0;
}

extern "C" int __wrap_posix_spawn(pid_t *child, const char *path,
                                  const posix_spawn_file_actions_t *, const posix_spawnattr_t *,
                                  char *const words[], char *const[])
{
    PROPERTY(strcmp(path, "/bin/sh") == 0 && strcmp(words[1], "-c") == 0 && words[3] == nullptr);
    judge(words[2]);
    if (output_fd >= 0)
        PROPERTY(write(output_fd, output.data(), output.size()) ==
                 static_cast<ssize_t>(output.size()));
    output_fd = -1;
    *child = PRETENDED_CHILD;
    return 0;
}

extern "C" pid_t __wrap_waitpid(pid_t child, int *status, int)
{
    PROPERTY(child == PRETENDED_CHILD);
    *status = 0;
    return child;
}

// The fuzzer's own watching thread sleeps by the same name, and would spin.
extern "C" unsigned __wrap_sleep(unsigned seconds)
{
    return gettid() == getpid() ? 0 : __real_sleep(seconds);
}

namespace kelm_fuzz {

bool shell_words(const std::string &command, std::vector<std::string> *words)
{
    words->clear();
    bool in_word = false;
    for (size_t i = 0; i < command.size(); ++i) {
        const char c = command[i];
        if (c == ' ') {
            in_word = false;
            continue;
        }
        if (!in_word)
            words->emplace_back();
        in_word = true;
        if (c == '\'') {
            const size_t end = command.find('\'', i + 1);
            if (end == std::string::npos)
                return false;
            words->back().append(command, i + 1, end - i - 1);
            i = end;
        } else if (c == '\\' && i + 1 < command.size() && command[i + 1] == '\'') {
            words->back() += command[++i];  // the one escape that the daemon writes
        } else if (is_special(c)) {
            return false;
        } else {
            words->back() += c;
        }
    }
    return !words->empty();
}

std::vector<std::string> take_commands()
{
    std::vector<std::string> taken;
    taken.swap(commands);
    return taken;
}

void set_command_output(const std::string &text)
{
    output = text;
}

}  // namespace kelm_fuzz

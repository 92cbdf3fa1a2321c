// SPDX-License-Identifier: ISC
// The steps from start to end of the process, in the order in which main calls them.
#include "daemon/lifecycle.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <fcntl.h>
#include <unistd.h>

#include "core/exec.h"
#include "core/file.h"
#include "core/handle.h"
#include "core/log.h"
#include "core/ops.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "core/signals.h"
#include "core/switches.h"
#include "ipc/bus.h"
#include "ipc/event_socks.h"
#include "wlan/availability.h"
#include "wlan/device_bands.h"
#include "wlan/easymesh_marks.h"
#include "wlan/verdict.h"

namespace kelm {

namespace {

constexpr const char *WPS_RESTART = "/etc/init.d/wps restart";
constexpr const char *ENTRY = "main";  // the first and the last step write its log lines

void _go_into_background()
{
    const pid_t child = fork();
    if (child < 0) {
        const int error = errno;
        perror("fork");
        exit(error);
    }
    if (child > 0)
        exit(0);
    setsid();
}

// --- An end by a signal that has no handler of ours ---

bool _ends_process(int number)
{
    switch (number) {
    case SIGCHLD:
    case SIGCONT:
    case SIGURG:
    case SIGWINCH:
    case SIGSTOP:
    case SIGTSTP:
    case SIGTTIN:
    case SIGTTOU:
    case SIGKILL:
        return false;
    default:
        return true;
    }
}

// 1 from kelm_guard_pid_file() until the file is removed. A pid file that is there later belongs to
// the next daemon: the restart script starts it, while this daemon still waits for that script.
volatile sig_atomic_t pid_file_is_ours = 0;

// SA_RESETHAND has set the signal to its default action, so raise() ends the process.
void _end_without_pid_file(int number)
{
    if (pid_file_is_ours != 0)
        (void)unlink(KELM_PID_PATH);
    (void)raise(number);
}

// --- SIGTERM in mid-attempt ---

uint16_t _status_at_termination(int status)
{
    switch (status) {
    case WPS_STATUS_STARTED:
        return WPS_STATUS_TIMEOUT;
    case WPS_STATUS_IDLE:
        return WPS_STATUS_SILENT;
    default:
        return static_cast<uint16_t>(status);
    }
}

void _close_access_points()
{
    (void)kelm_ops.wps_cancel();
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (kelm_get_band_inited(band))
            (void)kelm_ops.set_ap_pin(band, nullptr);
    }
}

void _publish_termination()
{
    uint16_t codes[KELM_BAND_COUNT] = {};
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (kelm_get_band_inited(band))
            codes[band] = _status_at_termination(kelm_get_status(band));
    }
    wps_ibus_send_wps_event(IBUS_WPS_ACTION_DONE, codes);
}

// --- The restart decision ---

struct restart_row {
    const char *log;
    const char *command;
};

constexpr restart_row FAILED_RESTART = {"mesh WPS fail restart.", WPS_RESTART};
constexpr restart_row NORMAL_RESTART = {"Normal WPS success restart.",
                                        "/etc/init.d/wifi force_restart"};
constexpr restart_row EASYMESH_RESTART = {"Easymesh WPS success restart.",
                                          "/etc/init.d/wifi restart_from_wps"};

// Only 2.4 and 5 GHz decide: the other bands have no exchange of their own on this platform.
const restart_row &_choose_restart()
{
    if (get_band_worker_succeed(KELM_BAND_2G) == 0 && get_band_worker_succeed(KELM_BAND_5G) == 0)
        return FAILED_RESTART;
    if (get_band_easymesh_wps(KELM_BAND_2G) == 0 && get_band_easymesh_wps(KELM_BAND_5G) == 0)
        return NORMAL_RESTART;
    return EASYMESH_RESTART;
}

}  // namespace

void kelm_daemonize()
{
    // In the foreground, session and process group stay as the supervisor has made them.
    if (!kelm_stays_in_foreground())
        _go_into_background();
    const int null = open("/dev/null", O_RDWR);
    if (null < 0)
        return;
    for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(null, descriptor);
    if (null > STDERR_FILENO)
        close(null);
}

int kelm_create_pid_file()
{
    // The file is made only if there is none. So of two daemons that start at once one fails here.
    const unique_fd own = kelm_claim_file(KELM_PID_PATH);
    // Whoever started this second daemon does not see the -1: the parent exited 0 long before. In
    // the foreground there is no parent of ours, and the caller sees it.
    if (!own.valid() && errno == EEXIST) {
        kelm_log_as(ENTRY, KELM_LOG_ALWAYS, "kelm has been started\n");
        return -1;
    }
    if (!own.valid()) {
        const int error = errno;
        perror("pidfile");
        exit(error);
    }
    dprintf(own.get(), "%d\n", getpid());
    return 0;
}

void kelm_guard_pid_file()
{
    pid_file_is_ours = 1;
    struct sigaction last_step = {};
    last_step.sa_handler = _end_without_pid_file;
    last_step.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
    sigemptyset(&last_step.sa_mask);
    for (int number = 1; number <= SIGRTMAX; ++number) {
        struct sigaction present = {};
        if (_ends_process(number) && sigaction(number, nullptr, &present) == 0 &&
            present.sa_handler == SIG_DFL)
            sigaction(number, &last_step, nullptr);
    }
}

int _kelm_register_signal()
{
    struct signal_row {
        int number;
        const char *name;
    };
    // SIGUSR1 in the second row too: log readers know the line of SIGUSR2 under this name.
    constexpr signal_row SIGNALS[] = {
        {SIGUSR1, "SIGUSR1"},
        {SIGUSR2, "SIGUSR1"},
        {SIGTERM, "SIGTERM"},
        {SIG_NEW_CONFIG, "SIG_NEW_CONFIG"},
    };
    struct sigaction action = {};
    action.sa_handler = _kelm_handle_signal;
    sigemptyset(&action.sa_mask);
    for (const signal_row &row : SIGNALS) {
        if (sigaction(row.number, &action, nullptr) == 0)
            continue;
        kelm_log_always("%s err: %s\n", row.name, strerror(errno));
        return -1;
    }
    return 0;
}

void _kelm_handle_signal(int number)
{
    // The main loop's wait unblocks all four. While one is handled, the others are blocked.
    kelm_hold_back_signals();
    const int saved_errno = errno;
    switch (number) {
    case SIGUSR1:
        ++kelm_dbg_level;
        dump_wps_session();
        break;
    case SIGUSR2:
        --kelm_dbg_level;
        dump_wps_session();
        break;
    case SIGTERM:
        kelm_begin_closing();
        if (kelm_get_run_mode() == KELM_MODE_AP)
            _close_access_points();
        if (kelm_get_status(KELM_BAND_2G) != WPS_STATUS_IDLE ||
            kelm_get_status(KELM_BAND_5G) != WPS_STATUS_IDLE) {
            kelm_log_normal("WPS is processing, close it anyway.\n");
            _publish_termination();
        }
        kelm_set_global_wpsflag_bit(KELM_GFLAG_TERMINATE);
        break;
    default:
        break;  // SIG_NEW_CONFIG only ends the wait
    }
    errno = saved_errno;
}

int _kelm_open()
{
    if (kelm_backup_run_mode() != 0)
        return -1;
    if (kelm_get_RFBand(&kelm_rf_band) < 0)
        return -1;
    if (kelm_create_session(kelm_rf_band) < 0)
        return -1;
    kelm_ops.kill_worker();
    time_last_check = 0;
    time_start = 0;
    time_boost = 0;
    if (kelm_check_available_status() != 0)
        return -1;
    if (kelm_ops.start_worker() != 0) {
        kelm_log_always("start worker process failed.\n");
        return -1;
    }
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band))
            continue;
        kelm_set_status(band, WPS_STATUS_IDLE);
        set_band_worker_succeed(band, 0);
    }
    dirty = 0;
    kelm_sock_list = nullptr;
    if (kelm_worker_sock_init() != 0) {
        kelm_log_always("worker socket init failed\n");
        return -1;
    }
    return 0;
}

void kelm_leave()
{
    kelm_let_commands_run();
    (void)unlink(KELM_PID_PATH);
    pid_file_is_ours = 0;
    kelm_log_as(ENTRY, KELM_LOG_DETAIL, "kelm_flag: %x\n", kelm_flag);
    if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WIFI_RESTART) != 0) {
        kelm_log_as(ENTRY, KELM_LOG_DETAIL, "re kelm info: to send wps status\n");
        (void)kelm_system("/etc/init.d/wps re_kelm_info", command_kind::script);
        kelm_log_as(ENTRY, KELM_LOG_NORMAL, "do wifi restart\n");
        kelm_log_as(ENTRY, KELM_LOG_NORMAL, "wps_status 2G = %d, 5G = %d.\n\n",
                    get_band_worker_succeed(KELM_BAND_2G), get_band_worker_succeed(KELM_BAND_5G));
        const restart_row &restart = _choose_restart();
        kelm_log_as(ENTRY, KELM_LOG_NORMAL, "%s\n", restart.log);
        (void)kelm_system(restart.command, command_kind::restart);
    }
    if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WPS_RESTART) != 0)
        (void)kelm_system(WPS_RESTART, command_kind::restart);
}

}  // namespace kelm

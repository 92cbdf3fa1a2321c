// SPDX-License-Identifier: ISC
// Reads single options of the uci store.
#include "config/uci_option.h"

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

extern "C" {
#include <uci.h>
}

#include "core/log.h"
#include "core/signals.h"
#include "core/text.h"
#include "core/trust.h"

namespace kelm {

namespace {

constexpr size_t SWITCH_SIZE = 33;
constexpr size_t YES_SIZE = 4;
constexpr size_t CLEARED_BYTES = 4;  // a failed look-up then leaves an empty text

struct uci_context_freer {
    void operator()(uci_context *context) const { uci_free_context(context); }
};
using unique_uci = std::unique_ptr<uci_context, uci_context_freer>;

struct uci_package_unloader {
    void operator()(uci_package *package) const { (void)uci_unload(package->ctx, package); }
};
using unique_uci_package = std::unique_ptr<uci_package, uci_package_unloader>;

// --- The library waits for ever for a file that another program has locked ---

constexpr int LOCK_LIMIT_MS = 1000;
// The limit after a lock that could not be had, and after the daemon was told to end. An attempt
// looks up a dozen options, and each would wait.
constexpr int SHORT_LOCK_LIMIT_MS = 50;
constexpr int64_t LOCK_MEMORY_MS = int64_t{10} * 1000;
constexpr suseconds_t KNOCK_US =
    suseconds_t{100} * 1000;  // repeated, since the first may come right before the wait

int64_t lock_missed_ms = -LOCK_MEMORY_MS;

int _lock_limit_ms()
{
    const bool in_haste = kelm_is_ending() || kelm_monotonic_ms() - lock_missed_ms < LOCK_MEMORY_MS;
    return in_haste ? SHORT_LOCK_LIMIT_MS : LOCK_LIMIT_MS;
}

// While an object of this class exists, a timer interrupts what the main thread waits for.
class wait_limit {
public:
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): sigaction and the like fill the rest.
    explicit wait_limit(int limit_ms) : end_ms_(kelm_monotonic_ms() + limit_ms)
    {
        struct sigaction knock = {};
        knock.sa_handler = [](int) {};  // without SA_RESTART, so the wait ends
        sigaction(SIGALRM, &knock, &action_);
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        pthread_sigmask(SIG_UNBLOCK, &alarm, &mask_);
        const itimerval timer = {{0, KNOCK_US}, {limit_ms / 1000, limit_ms % 1000 * 1000L}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
    wait_limit(const wait_limit &) = delete;
    wait_limit &operator=(const wait_limit &) = delete;
    ~wait_limit()
    {
        const itimerval never = {};
        setitimer(ITIMER_REAL, &never, nullptr);
        pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
        sigaction(SIGALRM, &action_, nullptr);
    }

    bool is_over() const { return kelm_monotonic_ms() >= end_ms_; }

private:
    int64_t end_ms_;
    struct sigaction action_;
    sigset_t mask_;
};

// --- The library reads a file, and applies changes from a folder in /tmp to what it has read ---

constexpr const char *CHANGES_FOLDER = "/tmp/.uci";
constexpr const char *CONFIG_FOLDERS[] = {"/var/run/uci", "/etc/config"};  // the first one wins
constexpr size_t PATH_SIZE = 128;

bool _may_apply_changes()
{
    struct stat there = {};
    if (lstat(CHANGES_FOLDER, &there) != 0)
        return false;
    if (S_ISDIR(there.st_mode) && (there.st_mode & (S_IWGRP | S_IWOTH)) == 0 &&
        kelm_is_trusted_user(there.st_uid))
        return true;
    static bool told = false;  // one line is enough for a dozen look-ups
    if (!told)
        kelm_log_as("_get_uci_option", KELM_LOG_ALWAYS, "%s: not used, others may write to it\n",
                    CHANGES_FOLDER);
    told = true;
    return false;
}

// Returns what the library shall load: the package's name, or the path of its file. A file that is
// loaded by its path gets no changes. That is right too when the folder of changes is missing:
// there are no changes then. If the name were loaded, anybody could still make the folder, before
// the library looks for it.
const char *_name_to_load(const char *package, char (&path)[PATH_SIZE])
{
    if (package[0] == '/' || _may_apply_changes())
        return package;
    for (const char *folder : CONFIG_FOLDERS) {
        if (snprintf(path, sizeof path, "%s/%s", folder, package) >= static_cast<int>(sizeof path))
            return package;
        if (access(path, F_OK) == 0)
            break;
    }
    return path;
}

// Null when the package cannot be read. If it stayed locked, that is logged.
uci_package *_load_package(uci_context *context, const char *package)
{
    char path[PATH_SIZE];
    const char *name = _name_to_load(package, path);
    uci_package *loaded = nullptr;
    const wait_limit limit(_lock_limit_ms());
    if (uci_load(context, name, &loaded) == UCI_OK)
        return loaded;
    if (limit.is_over()) {
        lock_missed_ms = kelm_monotonic_ms();
        kelm_log_as("_get_uci_option", KELM_LOG_ALWAYS,
                    "uci: %s is locked by another program, read as empty\n", package);
    }
    return nullptr;
}

// Of the sections that may be meant, returns the value of the first one that has the option as a
// text. Null when there is none. Lists do not count.
const char *_find_string(uci_context *context, uci_package *package, const char *section_name,
                         const char *option_name)
{
    uci_element *element = nullptr;
    uci_foreach_element(&package->sections, element)
    {
        uci_section *section = uci_to_section(element);
        if (section_name != nullptr && strcmp(section->e.name, section_name) != 0)
            continue;
        const uci_option *option = uci_lookup_option(context, section, option_name);
        if (option != nullptr && option->type == UCI_TYPE_STRING)
            return option->v.string;
    }
    return nullptr;
}

// Whether an option's value is exactly text. An option that is missing, or longer than the buffer,
// counts as "".
template <size_t size>
bool _option_equals(const char *package, const char *section, const char *option, const char *text)
{
    char value[size] = {};
    (void)_get_uci_option(package, section, option, value, sizeof value);
    return strcmp(value, text) == 0;
}

}  // namespace

int _get_uci_option(const char *package, const char *section, const char *option, char *buffer,
                    size_t size)
{
    if (package == nullptr || option == nullptr) {
        puts("uci parameters are invalid.");
        return -1;
    }
    memset(buffer, 0, size < CLEARED_BYTES ? size : CLEARED_BYTES);
    const unique_uci context(uci_alloc_context());
    if (!context) {
        puts("uci alloc context failed.");
        return -1;
    }
    const unique_uci_package loaded(_load_package(context.get(), package));
    if (!loaded) {
        printf("%s %d\n", __func__, __LINE__);
        return -1;
    }
    const char *value = _find_string(context.get(), loaded.get(), section, option);
    if (value == nullptr || strlen(value) >= size)
        return -1;
    memcpy(buffer, value, strlen(value) + 1);
    return 0;
}

bool check_factory()
{
    return _option_equals<SWITCH_SIZE>("wifi2G_Cfg", "settings1", "rootApSsid", "") &&
           _option_equals<SWITCH_SIZE>("wifi5G_Cfg", "settings1", "rootApSsid", "") &&
           _option_equals<SWITCH_SIZE>("wifi2G_Cfg", "settings2", "apBssEnabled", "on");
}

bool check_GermanySSID()
{
    return _option_equals<YES_SIZE>("wificommonCfg", "settings", "IsGermanySSID", "yes");
}

bool check_easymesh_enable()
{
    char value[SWITCH_SIZE] = {};
    (void)_get_uci_option("wificommonCfg", "settings", "mesh_enable", value, sizeof value);
    if (strcmp(value, "on") == 0)
        return true;
    if (strcmp(value, "off") != 0)
        kelm_log_always("----------------check_easymesh_enable fail--------\n");
    return false;
}

}  // namespace kelm

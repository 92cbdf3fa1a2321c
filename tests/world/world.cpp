// SPDX-License-Identifier: ISC
// Builds the private world of the function tests from mounts in a namespace of its own.
#include "tests/world/world.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

// The compiler's own; there only where it was told to count.
extern "C" void __gcov_dump() __attribute__((weak));

namespace kelm_test {

namespace {

constexpr int CONSOLE_PIPE_SIZE = 1 << 20;
constexpr const char *COMMAND_LOG = "/mnt/log/commands";
constexpr const char *CONSOLE = "/dev/console";
constexpr const char *NAME_CHARACTERS =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_";

int console_fd = -1;
size_t commands_seen = 0;

[[noreturn]] void fail(const std::string &what)
{
    fprintf(stderr, "test world: %s: %s\n", what.c_str(), strerror(errno));
    exit(1);
}

void check(bool fine, const std::string &what)
{
    if (!fine)
        fail(what);
}

void make_folders(const std::string &path)
{
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0755);
    check(mkdir(path.c_str(), 0755) == 0 || errno == EEXIST, "mkdir " + path);
}

void mount_or_fail(const char *source, const std::string &target, const char *type,
                   unsigned long flags, const char *data)
{
    check(mount(source, target.c_str(), type, flags, data) == 0, "mount on " + target);
}

// A map of one id; without denying setgroups first the kernel refuses the one of the groups.
void become_root_of_own_users(uid_t uid, gid_t gid)
{
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    write_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

void leave_the_machines_mounts()
{
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWNS) == 0)
        return;
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        fail(
            "a private mount namespace needs root (CAP_SYS_ADMIN) or unprivileged user namespaces"
            " (sysctl kernel.unprivileged_userns_clone=1, user.max_user_namespaces above 0), and"
            " this machine grants neither");
    become_root_of_own_users(uid, gid);
}

// Makes / a mount point, which the root folder of a plain chroot is not. Mounts there might show up
// outside, and what cannot be named cannot be made private: so a copy of the whole tree goes over a
// mount that can, and becomes the root.
void stand_on_a_mount()
{
    char here[4096];
    check(getcwd(here, sizeof here) != nullptr, "getcwd");
    mount_or_fail("none", "/proc", nullptr, MS_REC | MS_PRIVATE, nullptr);
    mount_or_fail("/", "/proc", nullptr, MS_BIND | MS_REC, nullptr);
    mount_or_fail("none", "/proc", nullptr, MS_REC | MS_PRIVATE, nullptr);
    check(chroot("/proc") == 0, "chroot");
    check(chdir(here) == 0, std::string("chdir ") + here);
}

void make_mounts_private()
{
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0)
        return;
    check(errno == EINVAL, "make mounts private");
    stand_on_a_mount();
}

int open_folder(const char *path)
{
    const int fd = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
    check(fd >= 0, std::string("open ") + path);
    return fd;
}

// By descriptor, since the path may be covered already.
void bind_folder(int fd, const char *target)
{
    make_folders(target);
    const std::string source = "/proc/self/fd/" + std::to_string(fd);
    mount_or_fail(source.c_str(), target, nullptr, MS_BIND | MS_REC, nullptr);
    close(fd);
}

// A folder that lies in the layer is this user's own, one that shows through may not be writable.
void layer_over(const std::string &folder, const std::string &name,
                const std::vector<std::string> &own)
{
    const std::string upper = "/mnt/layers/" + name + "/upper";
    for (const std::string &inner : own)
        make_folders(upper + "/" + inner);
    const std::string work = "/mnt/layers/" + name + "/work";
    make_folders(upper);
    make_folders(work);
    const std::string data = "lowerdir=" + folder + ",upperdir=" + upper + ",workdir=" + work;
    mount_or_fail("overlay", folder, "overlay", 0, data.c_str());
}

void cover_tmp()
{
    mount_or_fail("tmpfs", "/tmp", "tmpfs", 0, "mode=1777");
    make_folders("/tmp/run");
    char run[4096];
    check(realpath("/var/run", run) != nullptr, "realpath /var/run");
    mount_or_fail("/tmp/run", run, nullptr, MS_BIND, nullptr);
}

// A folder of its own, so that a test can take the console away.
void cover_dev()
{
    static const char *const devices[] = {"null", "zero", "full", "random", "urandom", "tty"};
    make_folders("/mnt/dev");
    mount_or_fail("tmpfs", "/mnt/dev", "tmpfs", 0, "mode=755");
    for (const char *device : devices) {
        const std::string place = std::string("/mnt/dev/") + device;
        write_file(place, "");
        mount_or_fail((std::string("/dev/") + device).c_str(), place, nullptr, MS_BIND, nullptr);
    }
    check(symlink("/proc/self/fd", "/mnt/dev/fd") == 0, "symlink /dev/fd");
    make_folders("/mnt/dev/shm");
    // Terminals of its own, for what is shown on one.
    make_folders("/mnt/dev/pts");
    mount_or_fail("devpts", "/mnt/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC,
                  "newinstance,ptmxmode=0666");
    check(symlink("pts/ptmx", "/mnt/dev/ptmx") == 0, "symlink /dev/ptmx");
    mount_or_fail("/mnt/dev", "/dev", nullptr, MS_MOVE, nullptr);
}

void put_console()
{
    if (console_fd >= 0)
        close(console_fd);
    unlink(CONSOLE);
    check(mkfifo(CONSOLE, 0600) == 0, "mkfifo /dev/console");
    console_fd = open(CONSOLE, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    check(console_fd >= 0, "open /dev/console");
    check(fcntl(console_fd, F_SETPIPE_SZ, CONSOLE_PIPE_SIZE) >= 0, "size of the console's pipe");
}

void put_stand_ins()
{
    static const char *const places[] = {
        "/mnt/bin/hostapd_cli", "/mnt/bin/wpa_cli", "/mnt/bin/ubus",    "/mnt/bin/nvram",
        "/mnt/bin/killall",     "/etc/init.d/wps",  "/etc/init.d/wifi", "/usr/bin/wifi"};
    make_folders("/mnt/bin");
    make_folders("/mnt/log");
    make_folders("/mnt/reply");
    write_file(COMMAND_LOG, "");
    const std::string script = read_file("/mnt/src/tests/world/record");
    check(!script.empty(), "read tests/world/record");
    write_file("/mnt/record", script);
    check(chmod("/mnt/record", 0755) == 0, "chmod /mnt/record");
    for (const char *place : places) {
        unlink(place);
        check(symlink("/mnt/record", place) == 0, std::string("symlink ") + place);
    }
    const char *path = getenv("PATH");
    setenv("PATH", (std::string("/mnt/bin:") + (path ? path : "/usr/bin:/bin")).c_str(), 1);
}

// Where a run of the given characters ends.
size_t end_of(const char *characters, const std::string &text, size_t from)
{
    return std::min(text.find_first_not_of(characters, from), text.size());
}

void remove_tree(const std::string &path)
{
    (void)umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);  // of a blocked name
    if (unlink(path.c_str()) == 0 || errno == ENOENT)
        return;
    DIR *folder = opendir(path.c_str());
    check(folder != nullptr, "opendir " + path);
    while (const dirent *entry = readdir(folder)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            remove_tree(path + "/" + name);
    }
    closedir(folder);
    check(rmdir(path.c_str()) == 0, "rmdir " + path);
}

}  // namespace

void enter_private_world(const char *source_dir, const char *build_dir)
{
    leave_the_machines_mounts();
    make_mounts_private();
    const int source = open_folder(source_dir);
    const int build = open_folder(build_dir);
    mount_or_fail("tmpfs", "/mnt", "tmpfs", 0, "mode=755");
    bind_folder(source, "/mnt/src");
    bind_folder(build, "/mnt/build");
    cover_dev();
    layer_over("/etc", "etc", {"init.d", "config"});
    layer_over("/usr/bin", "usr-bin", {});
    cover_tmp();
    put_stand_ins();
    put_console();
    reset_world();
}

void write_file(const std::string &path, const std::string &text)
{
    make_folders(path.substr(0, path.rfind('/')));
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    check(fd >= 0, "open " + path);
    check(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
          "write " + path);
    close(fd);
}

std::string read_file(const std::string &path)
{
    std::string text;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return text;
    char part[4096];
    ssize_t got;
    while ((got = read(fd, part, sizeof part)) > 0)
        text.append(part, got);
    close(fd);
    return text;
}

bool file_exists(const std::string &path)
{
    return file_mode(path) >= 0;
}

int file_mode(const std::string &path)
{
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return -1;
    return status.st_mode & 07777;
}

void clear_tmp()
{
    DIR *folder = opendir("/tmp");
    check(folder != nullptr, "opendir /tmp");
    while (const dirent *entry = readdir(folder)) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && name != "run")
            remove_tree("/tmp/" + name);
    }
    closedir(folder);
    DIR *run = opendir("/tmp/run");
    check(run != nullptr, "opendir /tmp/run");
    while (const dirent *entry = readdir(run)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            remove_tree("/tmp/run/" + name);
    }
    closedir(run);
}

void reset_world()
{
    clear_tmp();
    remove_tree("/etc/config");
    make_folders("/etc/config");
    remove_tree("/mnt/reply");
    make_folders("/mnt/reply");
    write_file(COMMAND_LOG, "");
    commands_seen = 0;
    put_console();
}

std::string console_text()
{
    std::string text;
    char part[4096];
    ssize_t got;
    while ((got = read(console_fd, part, sizeof part)) > 0)
        text.append(part, got);
    return text;
}

std::string console_text_without_line_numbers()
{
    static const std::string start = "kelm[";
    const std::string text = console_text();
    std::string changed;
    size_t at = 0;
    for (size_t found; (found = text.find(start, at)) != std::string::npos;) {
        const size_t colon = end_of(NAME_CHARACTERS, text, found + start.size());
        const size_t bracket = end_of("0123456789", text, colon + 1);
        const bool is_origin = text.compare(colon, 1, ":") == 0 && bracket > colon + 1 &&
                               text.compare(bracket, 3, "]: ") == 0;
        const size_t kept = is_origin ? colon : found + start.size();
        changed.append(text, at, kept - at);
        if (is_origin)
            changed += ":N";
        at = is_origin ? bracket : kept;
    }
    return changed.append(text, at);
}

std::vector<std::string> recorded_commands()
{
    const std::string text = read_file(COMMAND_LOG);
    std::vector<std::string> lines;
    for (size_t end; (end = text.find('\n', commands_seen)) != std::string::npos;) {
        lines.push_back(text.substr(commands_seen, end - commands_seen));
        commands_seen = end + 1;
    }
    return lines;
}

void set_reply(const std::string &name, const std::string &shell_text)
{
    write_file("/mnt/reply/" + name, shell_text);
}

bool may_give_files_away()
{
    constexpr uid_t ANOTHER = 65534;
    write_file("/mnt/given", "");
    const bool may = lchown("/mnt/given", ANOTHER, ANOTHER) == 0;
    (void)unlink("/mnt/given");
    return may;
}

void block_name(const std::string &path)
{
    make_folders(path);
    mount_or_fail("none", path, "tmpfs", 0, "mode=755");
}

void remove_console()
{
    check(unlink(CONSOLE) == 0, "unlink /dev/console");
}

void leave_process(int status)
{
    if (__gcov_dump != nullptr)
        __gcov_dump();
    _exit(status);
}

}  // namespace kelm_test

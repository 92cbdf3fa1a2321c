// SPDX-License-Identifier: ISC
// JSON files: reading with a limit, and objects to merge into.
#include "core/json_file.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

#include "core/exec.h"
#include "core/file.h"
#include "core/json_text.h"
#include "core/log.h"
#include "core/text.h"
#include "core/trust.h"

namespace kelm {

namespace {

constexpr size_t TOUCH_SIZE = 128;  // of the whole command

// The name is secured first. Otherwise, if a link had this name, touch would create the file to
// which the link points, and every user could read it.
void _touch(const char *path)
{
    char word[TOUCH_SIZE];
    if (kelm_pin_to_merge(path) && shell_word(word, sizeof word, path) == 0)
        (void)kelm_system_format(TOUCH_SIZE, "touch %s", word);
}

ssize_t _read_once(const unique_fd &file, char *text, size_t size)
{
    ssize_t length = -1;
    do {
        length = ::read(file.get(), text, size);
    } while (length < 0 && errno == EINTR);
    return length;
}

// Reads up to size bytes; fewer only at the end of the file. Returns how many, or -1.
ssize_t _read_whole(const unique_fd &file, char *text, size_t size)
{
    size_t used = 0;
    ssize_t count = 1;
    while (count > 0 && used < size) {
        count = _read_once(file, text + used, size - used);
        used += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return count < 0 ? -1 : static_cast<ssize_t>(used);
}

// Null when the file is missing or no JSON, and also when memory ran out, which no_memory tells. In
// that case the file may hold JSON, which must not be lost.
unique_json _load(const char *path, bool *no_memory)
{
    errno = 0;
    const unique_fd file = kelm_open_trusted(path, O_RDONLY);
    *no_memory = !file.valid() && errno == ENOMEM;
    struct stat status = {};
    if (!file.valid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size > KELM_JSON_FILE_MAX)
        return nullptr;
    const auto size = static_cast<size_t>(status.st_size);
    const unique_text text(static_cast<char *>(malloc(size + 1)));
    *no_memory = !text;
    const ssize_t length = text ? _read_whole(file, text.get(), size) : -1;
    return length < 0 ? nullptr
                      : kelm_parse_json(text.get(), static_cast<size_t>(length), no_memory);
}

unsigned _handle(const unique_json &object)
{
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(object.get()));
}

}  // namespace

json_read_result kelm_read_json(const char *path, int flags, size_t limit, unique_json *out)
{
    // One byte more than is read. So the parser gets a terminated text even when the file fills the
    // limit.
    const unique_text text(static_cast<char *>(calloc(limit + 1, 1)));
    if (!text)
        return json_read_result::no_memory;
    const unique_fd file = kelm_open_trusted(path, flags);
    if (!file.valid())
        return json_read_result::open_failed;
    if (_read_once(file, text.get(), limit) < 0)
        return json_read_result::read_failed;

    bool no_memory = false;
    unique_json parsed = kelm_parse_json(text.get(), strlen(text.get()) + 1, &no_memory);
    if (!parsed)
        return no_memory ? json_read_result::no_memory : json_read_result::parse_failed;
    *out = std::move(parsed);
    return json_read_result::ok;
}

unique_json kelm_load_json(const char *path)
{
    bool no_memory = false;
    return _load(path, &no_memory);
}

int kelm_json_int(json_object *object, const char *key, int fallback)
{
    json_object *value = nullptr;
    if (!json_object_object_get_ex(object, key, &value))
        return fallback;
    return json_object_is_type(value, json_type_int) ? json_object_get_int(value) : fallback;
}

unique_json _get_json_from_file(const char *path)
{
    _touch(path);

    bool no_memory = false;
    unique_json root = _load(path, &no_memory);
    kelm_log_detail("Return root %08x. type(%d)\n", _handle(root),
                    json_object_get_type(root.get()));
    if (!no_memory && !json_object_is_type(root.get(), json_type_object))
        root.reset(json_object_new_object());
    if (!root) {
        kelm_log_always("Parse string to json failed.\n");
        return root;
    }
    if (kelm_dbg_level.load(std::memory_order_relaxed) >= KELM_LOG_DETAIL)  // the text costs memory
        kelm_log_detail("obj %s\n", json_object_to_json_string(root.get()));
    kelm_log_detail("Return root %08x. type(%d)\n", _handle(root),
                    json_object_get_type(root.get()));
    return root;
}

}  // namespace kelm

// SPDX-License-Identifier: ISC
// Single options of the uci store.
#include "config/uci_option.h"

#include <cstdio>
#include <cstring>
#include <memory>

extern "C" {
#include <uci.h>
}

#include "core/log.h"
#include "core/text.h"

namespace kelm {

namespace {

constexpr size_t SWITCH_SIZE = 33;
constexpr size_t YES_SIZE = 4;
constexpr size_t CLEARED_BYTES = 4;  // enough to make the answer of a failed look-up read as empty

struct uci_context_freer {
    void operator()(uci_context *context) const { uci_free_context(context); }
};
using unique_uci = std::unique_ptr<uci_context, uci_context_freer>;

struct uci_package_unloader {
    void operator()(uci_package *package) const { (void)uci_unload(package->ctx, package); }
};
using unique_uci_package = std::unique_ptr<uci_package, uci_package_unloader>;

// The string of the first section that qualifies and has the option, or null. Lists do not count.
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

// Whether an option is exactly the text; one that is missing or longer than the buffer is "".
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
    uci_package *loaded = nullptr;
    if (uci_load(context.get(), package, &loaded) != UCI_OK) {
        printf("%s %d\n", __func__, __LINE__);
        return -1;
    }
    const unique_uci_package owned(loaded);
    const char *value = _find_string(context.get(), loaded, section, option);
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

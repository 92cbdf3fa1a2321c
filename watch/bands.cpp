// SPDX-License-Identifier: ISC
// A band is known from the command line, from the makers' names, or from what the sources found.
#include "watch/bands.h"

#include "core/text.h"
#include "watch/words.h"

namespace kelm {

namespace {

constexpr size_t FOUND_MAX = 64;
constexpr const char *BANDS[] = {"2.4 GHz", "5 GHz", "6 GHz"};

struct found_band {
    char iface[WATCH_IFACE_SIZE];
    const char *band;
};

const watch_options *told = nullptr;
found_band found[FOUND_MAX];
size_t found_count = 0;

}  // namespace

void watch_take_band_options(const watch_options &options)
{
    told = &options;
    found_count = 0;
}

const char *watch_band_of(text_span iface)
{
    for (size_t i = 0; told != nullptr && i < told->band_count; ++i) {
        const watch_band_option &row = told->bands[i];
        if (row.iface_length == iface.length && memcmp(row.iface, iface.at, iface.length) == 0)
            return row.band;
    }
    const char *band = watch_makers_band(iface);
    for (size_t i = 0; band[0] == '\0' && i < found_count; ++i) {
        if (iface.is(found[i].iface))
            band = found[i].band;
    }
    return band;
}

const char *watch_band(const char *iface)
{
    return watch_band_of(span_of(iface));
}

void watch_set_band(const char *iface, const char *band)
{
    const char *known = "";
    for (const char *row : BANDS) {
        if (strcmp(row, band) == 0)
            known = row;
    }
    size_t at = 0;
    while (at < found_count && strcmp(found[at].iface, iface) != 0)
        ++at;
    if (at == FOUND_MAX || strlen(iface) >= WATCH_IFACE_SIZE)
        return;
    copy_text(found[at].iface, iface);
    found[at].band = known;
    found_count += at == found_count ? 1 : 0;
}

}  // namespace kelm

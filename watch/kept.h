// SPDX-License-Identifier: ISC
// Takes the secrets out of a line: only what watch/kept.inc lists is kept.
#pragma once

#include "watch/aliases.h"
#include "watch/text.h"

namespace kelm {

// Writes the line with "[N bytes]" where something may be a secret; one that grows beyond out is
// "[N bytes]" as a whole. aliases: null, or what names on the air are replaced by. iface: the
// interface that the line names, or an empty part of it.
void watch_keep(const char *source, text_span text, watch_aliases *aliases, text_out *out,
                text_span *iface);

}  // namespace kelm

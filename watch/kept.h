// SPDX-License-Identifier: ISC
// Takes the secrets out of a line: only what watch/kept.inc lists is kept.
#pragma once

#include "watch/aliases.h"
#include "watch/text.h"

namespace kelm {

// Writes the line to out, with "[N bytes]" in place of what may be a secret. If the result does not
// fit into out, the whole line becomes "[N bytes]". aliases: replaces names on the air by aliases;
// null: they stay. iface: becomes the interface that the line names, or an empty part of the line.
void watch_keep(const char *source, text_span text, watch_aliases *aliases, text_out *out,
                text_span *iface);

}  // namespace kelm

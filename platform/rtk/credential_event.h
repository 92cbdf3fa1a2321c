// SPDX-License-Identifier: ISC
// Credentials that come with an event. They are for a wpa_supplicant that does not write its file:
// the daemon then writes "/tmp/run/wpa_supplicant-IF.conf" itself, and reads it later as usual.
#pragma once

namespace kelm {

// Before an attempt: replaces the band's file by one without a learnt network. Else a network that
// an earlier attempt has left would count as learnt in this one. False (logged) when the file
// cannot be replaced.
bool rtk_forget_credential(int band);

// Takes a credential that the band's station has received, and writes the file with its network.
// payload: the attributes of one credential as hexadecimal digits. They may stand inside an
// attribute for the credential, or alone. The first usable credential of an attempt counts. A later
// one, or one that is not usable, gives a log line and changes nothing. No key gets into the log.
void rtk_take_credential(int band, const char *payload);

}  // namespace kelm

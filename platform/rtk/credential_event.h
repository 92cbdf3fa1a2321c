// SPDX-License-Identifier: ISC
// Credentials that come with an event, for a wpa_supplicant that does not write its file: the
// daemon writes "/tmp/run/wpa_supplicant-IF.conf" itself, and reads it as ever.
#pragma once

namespace kelm {

// Before an attempt: replaces the band's file by one without a learnt network, so that nothing
// which an earlier attempt has left is taken for what this one has learnt. False (logged) when that
// cannot be done.
bool rtk_forget_credential(int band);

// What the band's station has received. payload: the attributes of one credential as hexadecimal
// digits, with their credential around them or without. Writes the file with the network. The first
// one of an attempt counts; one that is left out, or not usable, costs a log line and changes
// nothing. No key gets into the log.
void rtk_take_credential(int band, const char *payload);

}  // namespace kelm

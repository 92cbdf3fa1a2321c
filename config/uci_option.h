// SPDX-License-Identifier: ISC
// Single options of the uci store: factory state, regional SSID flag, EasyMesh switch.
#pragma once

#include <cstddef>

namespace kelm {

// Copies an option's value into buffer (size bytes, zeroed by the caller). section may be null: any
// section. Returns 0, or -1 with a line on standard output when the store cannot be read; a value
// that does not fit or is not there gives -1 too. A package that another program keeps locked is
// not waited for beyond a second, and counts as unreadable (logged). Main thread only: takes
// SIGALRM and the process's timer meanwhile.
int _get_uci_option(const char *package, const char *section, const char *option, char *buffer,
                    size_t size);

// The device is as the factory left it: no root access point known on either band, 2.4 GHz access
// point on.
bool check_factory();

// SSIDs get no postfix.
bool check_GermanySSID();

// EasyMesh is switched on. Anything but "on" and "off" is logged and reads as off.
bool check_easymesh_enable();

}  // namespace kelm

// SPDX-License-Identifier: ISC
// Reads single options of the uci store: factory state, regional SSID flag, EasyMesh switch.
#pragma once

#include <cstddef>

namespace kelm {

// Copies an option's value into buffer (size bytes, set to zero by the caller). section: null means
// any section. Returns 0. Returns -1
// - with a line on standard output, when package or option is null or the store cannot be read;
// - without one, when the option is not there or its value does not fit.
// If another program keeps the package locked, this waits for a second at most. Then the package
// counts as unreadable (logged). Main thread only: while it works, this uses SIGALRM and the
// process's timer.
int _get_uci_option(const char *package, const char *section, const char *option, char *buffer,
                    size_t size);

// Whether the device is as the factory left it: neither the 2.4 GHz band nor the 5 GHz band knows a
// root access point, and the 2.4 GHz access point is on.
bool check_factory();

// Whether SSIDs get no postfix.
bool check_GermanySSID();

// Whether EasyMesh is switched on. Any value but "on" and "off" is logged and counts as off.
bool check_easymesh_enable();

}  // namespace kelm

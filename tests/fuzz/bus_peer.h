// SPDX-License-Identifier: ISC
// A broker without a broker: system calls on the program's connection are answered from a script.
#pragma once

#include <string>
#include <vector>

namespace kelm_fuzz {

// The next connection is answered with these turns; one is there when the one before was read and
// the program waits. After the last one the connection is over. pieces 0: a read gets what there is
// and a write takes everything; otherwise the state of a generator that cuts reads and writes short
// and interrupts them.
void start_peer(const std::vector<std::string> &turns, unsigned pieces);

// Blocks as poll() on the connection would.
void wait_for_peer();

// What the program was given, and what it sent.
std::string peer_said();
std::string peer_got();

}  // namespace kelm_fuzz

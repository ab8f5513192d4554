// SPDX-License-Identifier: GPL-2.0-or-later
// EnSight Gold geometry file (one part, one block of 8-node elements), sequential-record binary
// or text: node coordinates, ids, connectivity. Also fixes resultsbinary for the displacements.
#pragma once

#include <string>

#include "control/runstate.h"

namespace wf {

void readgeo(RunState &rs, const std::string &suffix);
// prefix + number + suffix; when missing, the number zero-padded to width 1..10; the first name
// that exists, else message 30 on the last one tried.
std::string findresultfile(RunState &rs, const std::string &prefix, int number,
                           const std::string &suffix);

}  // namespace wf

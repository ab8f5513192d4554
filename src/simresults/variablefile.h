// SPDX-License-Identifier: GPL-2.0-or-later
// The reading of a per-node variable file (dispfile) into a given array, node-major: ncomp 1
// gives nnodes values, 3 gives 3 x nnodes, 6 gives 6 x nnodes; any other ncomp reads the four
// header items only and leaves the array empty. readvariable(rs, 3) reads into nodedisp.
#pragma once

#include <vector>

#include "control/runstate.h"

namespace wf {

void readvariablevalues(RunState &rs, int ncomp, std::vector<double> &values);
// The read check of the variable file: end of file is message 362 naming the file, anything
// else goes to checkread.
void checkvarread(RunState &rs, int status, const std::string &file);

}  // namespace wf

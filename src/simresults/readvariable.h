// SPDX-License-Identifier: GPL-3.0-or-later
// The per-node variable file of the chosen increment, in the form the geometry file had: a
// description, the part line, the part number, the "coordinates" line, then one item per
// component with one single-precision value per node, in the node order of the geometry.
#pragma once

#include <string>
#include <vector>

#include "base/folder.h"
#include "simresults/simulation.h"

namespace wf {

// Reads ncomp components into values, node-major (ncomp x nnodes): ncomp 1, 3 or 6; any other
// ncomp reads the four header items only and leaves values empty. The path is relative to `in`;
// the messages name it as given. Throws Fatal: 30 (no file), 31 (open), 362 (the file ends
// early), 27, 29, 32.
void readvariablefile(const std::string &path, bool binary, int32_t nnodes, int ncomp, std::vector<double> &values,
                      const Folder &in = Folder());

}  // namespace wf

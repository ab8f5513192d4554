// SPDX-License-Identifier: GPL-3.0-or-later
// *WRTU: the text report, one line per vertex of 84 characters: the position before the warp and
// the displacement, six 14-character scientific fields (differences taken in double).
#pragma once

#include <string>

#include "base/folder.h"
#include "surface/surfacemesh.h"

namespace wf {

// Writes the report of mesh to path (relative to `in`, named in the messages as given),
// replacing an earlier file. Throws Fatal: 31, 200, 32.
void writetextreport(const SurfaceMesh &mesh, const std::string &path, const Folder &in = Folder());

}  // namespace wf

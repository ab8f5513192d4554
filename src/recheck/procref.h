// SPDX-License-Identifier: GPL-3.0-or-later
// Reference and scanned geometries as prepared triangle query sets: the file is read raw (no
// merging, any triangle soup serves, the repaired-sibling rule applies), its query terms are
// computed, and the set is kept for the rest of the run.
#pragma once

#include <string>

#include "base/reporter.h"
#include "warp/closestpoint.h"

namespace wf {

// The step: the title line, the read of `file` (stlpath receives its name, byteorder is that of
// the reader), "Calculating surface normals", and the set. Throws what the reader throws.
QuerySet buildqueryset(Reporter &rep, const char *title, const std::string &file,
                       std::string &stlpath, int &byteorder);

}  // namespace wf

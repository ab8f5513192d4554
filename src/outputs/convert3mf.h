// SPDX-License-Identifier: GPL-2.0-or-later
// *O3MF: the written surface converted to a plain 3MF file through lib3MF; never fatal.
#pragma once

#include "control/runstate.h"

namespace wf {

void convert3mfstep(RunState &rs);
int convertto3mf(RunState &rs, const char *inputpath, const char *outputpath);

}  // namespace wf

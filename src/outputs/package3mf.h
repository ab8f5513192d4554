// SPDX-License-Identifier: GPL-2.0-or-later
// The coloured 3MF package: five members written into "<stem>_color/" and zipped to
// "<stem>_color.3mf"; vertices coloured by displacement magnitude from blue to red.
#pragma once

#include <string>
#include <vector>

#include "control/runstate.h"

namespace wf {

void write3mfstep(RunState &rs);
void write3mf(RunState &rs, const std::vector<float> &dispsingle);
int zippackage(RunState &rs, const char *zipname, const char *folder, char *filelist);
int iszip64file(const char *path, const char *prefix);

}  // namespace wf

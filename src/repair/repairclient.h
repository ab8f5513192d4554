// SPDX-License-Identifier: GPL-3.0-or-later
// Repair client: each surface that failed the check is sent through the mesh-repair component,
// which writes "<stem>_ls_repair.stl"; the surface's entry names that file afterwards, repaired
// or not. A failure is critical warning 1011.
// Every console line of a repair is written and flushed at once; its numbers follow the
// console's hexadecimal mode.
#pragma once

#include <string>

#include "base/folder.h"
#include "base/reporter.h"

namespace wf {

// The surface that failed its check sent through the component (tsre asks for the extended
// repair as well); returns the repaired file's name, "<stem>_ls_repair.stl" (the stem when the
// file exists, else the whole name), which stands for the surface afterwards whether or not the
// repair succeeded. A failure is critical warning 1011, and the run goes on. The file and its
// repaired name are relative to `in`; the lines name them as given.
std::string sendtorepair(Reporter &rep, const std::string &file, double tolerance, bool tsre,
                         const Folder &in = Folder());
// 0 success, -1 an error of the repair component, -3 the mesh stays unsound.
int repairsurface(Reporter &rep, const std::string &infile, const std::string &outfile, const double &tolerance,
                  const int &extended, const Folder &in = Folder());

}  // namespace wf

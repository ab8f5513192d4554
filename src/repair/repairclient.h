// SPDX-License-Identifier: GPL-3.0-or-later
// Repair client: each surface that failed the check is sent through the mesh-repair component,
// which writes "<stem>_ls_repair.stl"; the surface's entry names that file afterwards, repaired
// or not. A failure is critical warning 1011; with tolerate false the run then ends (46).
// Every console line of a repair is written and flushed at once; its numbers follow the
// console's hexadecimal mode.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/reporter.h"

namespace wf {

// One surface of the list: its file, the results of its check, and its type (3 asks for the
// extended repair).
struct RepairItem {
  std::string file;
  bool watertight = false;
  bool oriented = true;
  int32_t type = 1;
};

// A watertight surface is skipped, unless checkorient is set and it is not oriented. tsre asks
// for the extended repair for every surface.
void repairsurfaces(Reporter &rep, std::vector<RepairItem> &items, bool tolerate,
                    bool checkorient, double tolerance, bool tsre);
// 0 success, -1 an error of the repair component, -3 the mesh stays unsound.
int repairsurface(Reporter &rep, const std::string &infile, const std::string &outfile,
                  const double &tolerance, const int &extended);

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// Post-warp check: with *TSRD the surface just written is read back, checked like an input
// surface, and a surface that fails goes to repair; the repaired file's name then takes the
// place of the output for the rest of the pass.
#pragma once

#include <string>
#include <vector>

#include "base/reporter.h"
#include "repair/repairclient.h"
#include "surface/preparesurface.h"

namespace wf {

struct RecheckSettings {
  Tolerances tolerances;
  double repairtol = 0.01;
  bool tsre = false;
};

// Reads the files of the list combined and prepares them; a clean surface gets its normals
// (nothing reads them further); otherwise every entry goes to repair and names the repaired
// file afterwards. stlpath and byteorder are those of the reader.
void recheck(Reporter &rep, std::vector<RepairItem> &files, bool tolerate, bool checkorient,
             const RecheckSettings &settings, std::string &stlpath, int &byteorder);

// The step: the output file as a one-entry list, checked with tolerate true and checkorient
// false. Returns the entry afterwards as a blank-padded field of 8192 characters (the output,
// or the repaired file whether or not the repair succeeded).
std::string recheckstep(Reporter &rep, const std::string &outstlpath,
                        const RecheckSettings &settings, std::string &stlpath, int &byteorder);

}  // namespace wf

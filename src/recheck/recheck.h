// SPDX-License-Identifier: GPL-3.0-or-later
// Post-warp check: with *TSRD the surface just written is read back, checked like an input
// surface, and a surface that fails goes to repair; the repaired file's name then takes the
// place of the output for the rest of the pass.
#pragma once

#include <string>

#include "base/reporter.h"
#include "repair/repairclient.h"
#include "surface/preparesurface.h"

namespace wf {

struct RecheckSettings {
  Tolerances tolerances;
  double repairtol = 0.01;
  bool tsre = false;
};

// The step: the output file read back and prepared; a clean surface gets its normals (nothing
// reads them further), any other goes to repair. Returns the file that stands for the output
// afterwards as a blank-padded field of 8192 characters (the output, or the repaired file
// whether or not the repair succeeded: the padding is what the rest of the pass compares with,
// so a repaired output is not converted to the plain package). stlpath and byteorder are those
// of the reader.
std::string recheckstep(Reporter &rep, const std::string &outstlpath,
                        const RecheckSettings &settings, std::string &stlpath, int &byteorder);

}  // namespace wf

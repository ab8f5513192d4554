// SPDX-License-Identifier: GPL-3.0-or-later
// The solver input file (<inputfile>.in) and the choices made from it: readsolverinput takes the
// five cards that concern a warp (*OFNS, *STLF, *STLM, *SSSS, *STLS) and passes over the rest;
// selectincrement picks the result increment and the latest mesh not later than it;
// selectsurfaces decides which surfaces the surface loop processes.
#pragma once

#include "base/reporter.h"
#include "control/settings.h"
#include "simresults/readcase.h"

namespace wf {

// Without *INPU only the defaults are set. Throws Fatal: 30, 31, 27-29 (a value line of *OFNS
// or *STLS that does not read), 32, 190.
void readsolverinput(Reporter &rep, const Settings &settings, JobFiles &files);
// Sets files.resultfilenumber and meshfilenumber. Throws Fatal: 194 (offset out of range), 195
// (no mesh existed at the increment's time).
void selectincrement(const CaseInfo &info, int32_t incoffset, JobFiles &files);
// Sets files.nsurfaces and stlids, and may clear selectbyfraction; posts 1036 and 1037. ninc is
// that of the case (0 without one). Throws Fatal: 191, 371, 192, 370.
void selectsurfaces(Reporter &rep, const Settings &settings, int32_t ninc, JobFiles &files);

}  // namespace wf

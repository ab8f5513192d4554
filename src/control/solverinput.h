// SPDX-License-Identifier: GPL-3.0-or-later
// The solver input file (<inputfile>.in) and the choices made from it: readsolverinput takes the
// five cards that concern a warp (*OFNS, *STLF, *STLM, *SSSS, *STLS) and passes over the rest;
// selectincrement picks the result increment and the latest mesh not later than it;
// selectsurfaces decides which surfaces the surface loop processes.
#pragma once

#include <functional>
#include <string>

#include "control/settings.h"
#include "simresults/readcase.h"

namespace wf {

// Without *INPU only the defaults are set; with it, onopen (when given) is told the file's name
// as soon as the file is open, before its cards are read. Throws Fatal: 30, 31, 27-29 (a value
// line of *OFNS or *STLS that does not read), 32, 190.
using InputOpenFn = std::function<void(const std::string &path)>;
void readsolverinput(const Settings &settings, JobFiles &files, const InputOpenFn &onopen = {});
// Sets files.resultfilenumber and meshfilenumber. Throws Fatal: 194 (offset out of range), 195
// (no mesh existed at the increment's time).
void selectincrement(const CaseInfo &info, int32_t incoffset, JobFiles &files);
// Sets files.nsurfaces and stlids, and may clear selectbyfraction; each surface dropped from a
// whole-job run is told to onwarning (when given) as it is found, with its code (1036 not chosen,
// 1037 not of type 1 at the last increment) and its name. ninc is that of the case (0 without
// one). Throws Fatal: 191, 371, 192, 370.
using SurfaceWarningFn = std::function<void(int code, const std::string &surface)>;
void selectsurfaces(const Settings &settings, int32_t ninc, JobFiles &files, const SurfaceWarningFn &onwarning = {});

}  // namespace wf

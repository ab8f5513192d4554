// SPDX-License-Identifier: GPL-3.0-or-later
// The order of the whole run: initrun (catalogue, signal stream, deck, solver input, case,
// increment, surfaces), the load of the simulation, the reference and scan sets, the surface
// loop, the finish event. A fatal condition anywhere throws Fatal, which only main catches.
//
// Folders are part of the design: the case and its results are opened relative to the case
// folder, the surfaces and outputs relative to the folder of the solver input file, to which the
// first pass of the surface loop changes for the rest of the run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/reporter.h"
#include "control/settings.h"
#include "simresults/readcase.h"

namespace wf {

// The whole run; returns the exit status (0). args: the command-line arguments after the
// program name.
int runwarpforge(Reporter &rep, const std::vector<std::string> &args);

// Everything from the catalogue to the selection of surfaces and the displacement file's name.
void initrun(Reporter &rep, const std::vector<std::string> &args, Settings &settings, JobFiles &files,
             CaseInfo &caseinfo);

// The names and shares of pass i (1-based) of the surface loop.
struct SurfaceNames {
  int32_t curstlid = 1;      // the rank of the surface among the selected ones
  int32_t progressbase = 0;  // percent done when the surface starts
  double progressshare = 1.0;
  std::string stlpath;     // the surface file
  std::string outstlpath;  // the output surface file
  std::string wrtupath;    // the text report
};
// Also checks that the output would not overwrite a surface of the job (193), that it has a
// name (196) and that the surface exists (197), prints "STL file = ", and changes to the
// folder of the solver input file.
SurfaceNames surfacenames(Reporter &rep, const Settings &settings, const JobFiles &files, int i);

// The closing lines of a pass, with the wall clock since the start of the process.
void finishsurface(Reporter &rep, const std::string &outstlpath);

// The file of the id-th selected surface (1-based), trimmed; empty when there is none.
std::string selectedsurface(const JobFiles &files, int32_t id);

// Splits a path into folder (with its trailing "/"), name and extension (with its dot).
void splitpath(const std::string &path, std::string &folder, std::string &name, std::string &ext);

}  // namespace wf

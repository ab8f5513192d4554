// SPDX-License-Identifier: GPL-3.0-or-later
// The order of the whole run: initrun (catalogue, signal stream, deck, solver input, case,
// increment, surfaces), the load of the simulation, the reference and scan sets, the surface
// loop, the finish event. A fatal condition anywhere throws Fatal, which only main catches.
//
// Folders are part of the design: the case and its results are opened relative to the case
// folder, the surfaces and outputs relative to the folder of the solver input file, which the
// first pass of the surface loop enters for the rest of the run (RunFolders). The process itself
// never changes folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/folder.h"
#include "base/reporter.h"
#include "control/settings.h"
#include "simresults/readcase.h"

namespace wf {

// The folders a run takes its relative file names from. The deck, the solver input file and the
// signal stream are named from the folder the process was started in, which it never leaves.
// The case file and all that it names are relative to the case folder (the start folder
// without *INPU). The surfaces, the outputs and their reports are relative to the folder of the
// solver input file, which the surface loop enters in its first pass; before that (the
// reference and scanned geometries, the first pass's look for an earlier output) a name is
// taken from the case folder. A folder that cannot be entered leaves the run where it was.
struct RunFolders {
  Folder cases;             // the case folder
  Folder surfaces;          // the folder of the solver input file, entered from the case folder
  bool insurfaces = false;  // the surface loop has entered `surfaces`
  // Where a name given at this moment of the run is taken from.
  const Folder &here() const { return insurfaces ? surfaces : cases; }
};

// The whole run; returns the exit status (0). args: the command-line arguments after the
// program name.
int runwarpforge(Reporter &rep, const std::vector<std::string> &args);

// Everything from the catalogue to the selection of surfaces and the displacement file's name;
// fills the folders of the run.
void initrun(Reporter &rep, const std::vector<std::string> &args, Settings &settings, JobFiles &files,
             CaseInfo &caseinfo, RunFolders &folders);

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
// name (196) and that the surface exists (197), prints "STL file = ", and enters the folder of
// the solver input file (folders.insurfaces); the look for an earlier output comes before.
SurfaceNames surfacenames(Reporter &rep, const Settings &settings, const JobFiles &files, RunFolders &folders, int i);

// The closing lines of a pass, with the wall clock since the start of the process.
void finishsurface(Reporter &rep, const std::string &outstlpath);

// The file of the id-th selected surface (1-based), trimmed; empty when there is none.
std::string selectedname(const JobFiles &files, int32_t id);

// Splits a path into folder (with its trailing "/"), name and extension (with its dot).
void splitpath(const std::string &path, std::string &folder, std::string &name, std::string &ext);

}  // namespace wf

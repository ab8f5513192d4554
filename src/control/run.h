// SPDX-License-Identifier: GPL-2.0-or-later
// The order of the whole run: initrun, the load of the simulation, the surface loop and the
// finish event. runwarpforge returns the exit status (0), or lets RunAborted through.
#pragma once

#include "control/runstate.h"

namespace wf {

int runwarpforge(RunState &rs);
void initrun(RunState &rs);
void loadsimulation(RunState &rs);  // readgeo, nodeactive, initgrid, readvariable
void surfacenames(RunState &rs, int i);
// The file of the id-th selected surface (1-based), trimmed; empty when there is none.
std::string selectedsurface(const JobFiles &files, int32_t id);
void freesurface(RunState &rs);     // releases the arrays of a pass
void finishsurface(RunState &rs);
// Splits a path into drive (always empty here), folder (with its trailing "/"), name and
// extension (with its dot).
void splitpath(const std::string &path, std::string &drive, std::string &folder,
               std::string &name, std::string &ext);

}  // namespace wf

// SPDX-License-Identifier: GPL-2.0-or-later
// RunState: the one record of a run. Every step takes it by reference as its first argument.
// Arrays are flat std::vector in column layout (the coordinate runs fastest); the values they
// hold keep 1-based numbering with 0 for none. Counts are kept beside each array.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/list.h"
#include "base/reporter.h"
#include "control/settings.h"
#include "simresults/readcase.h"
#include "simresults/simulation.h"
#include "surface/preparesurface.h"
#include "surface/surfacemesh.h"
#include "warp/closestpoint.h"
#include "warp/nodegrid.h"

namespace wf {



struct RunState {
  Settings settings;
  JobFiles files;
  CaseInfo caseinfo;
  Simulation sim;

  // ---- per surface ----
  std::string stlpath;      // the current surface file
  std::string outstlpath;   // after recheckstep: blank-padded to 8192 characters
  std::string wrtupath;
  int32_t curstlid = 1;
  int32_t progressbase = 0;
  double progressshare = 1.0;

  NodeGrid grid;

  // ---- current surface ----
  int32_t stlbyteorder = 0;     // stays set between surfaces
  RawSurface raw;
  SurfaceMesh mesh;
  EdgeTable edges;
  std::vector<double> nrgtri;   // facet normals of the mesh
  SurfaceCheck check;

  // ---- reference and scan query sets ----
  QuerySet ref, scn;
  double refminz = 0;

  // ---- console, signal stream, catalogue, telemetry ----
  Reporter rep;
  std::vector<std::string> args;  // command-line arguments after the program name
};

}  // namespace wf

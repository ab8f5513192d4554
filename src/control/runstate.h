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

namespace wf {

// A prepared triangle query set (reference or scan): per triangle t (0-based below)
// corners at corners[9t .. 9t+8] (corner 1 x,y,z, corner 2, corner 3), the edge vectors
// e0 = corner2 - corner1 and e1 = corner3 - corner1 at [3t..3t+2], and the five products.
struct TriData {
  int32_t nvrt = 0;  // raw vertex count, 3 * ntri
  int32_t ntri = 0;
  std::vector<double> corners;  // 3 x nvrt
  std::vector<double> e0, e1;   // 3 x ntri each
  std::vector<double> a, b, c, det, den;  // ntri each
  std::vector<double> normal;  // 3 x ntri
  std::vector<double> nnsq;    // ntri
  double bbox[6] = {0, 0, 0, 0, 0, 0};  // min x,y,z, max x,y,z
};


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

  // ---- node grid ----
  double gridorigin[3] = {0, 0, 0};
  double gridcellsize[3] = {0, 0, 0};
  int32_t gridnx = 1, gridny = 1, gridnz = 1;
  std::vector<int32_t> jcellnodes;   // nnodes
  std::vector<int32_t> j0cellnodes;  // 2 x gridnx x gridny x gridnz

  // ---- current surface ----
  int32_t stlbyteorder = 0;     // stays set between surfaces
  RawSurface raw;
  SurfaceMesh mesh;
  EdgeTable edges;
  std::vector<double> nrgtri;   // facet normals of the mesh
  SurfaceCheck check;
  // warp and refinement
  double buildplane = 0;
  std::vector<uint8_t> triactive;
  int32_t vrtcap = 0, tricap = 0;

  // ---- reference and scan query sets ----
  TriData ref, scn;
  double refminz = 0;

  // ---- console, signal stream, catalogue, telemetry ----
  Reporter rep;
  std::vector<std::string> args;  // command-line arguments after the program name
};

}  // namespace wf

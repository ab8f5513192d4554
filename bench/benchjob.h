// SPDX-License-Identifier: GPL-3.0-or-later
// The large generated job as the benchmarks load it: made by genjob (beside the running
// program), then read step by step as a run reads it, each step a call of its own so that a
// benchmark can time it: the simulation mesh, the node grid, the displacements, the prepared
// surface. The console goes to /dev/null, and the process moves into the job's folder.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/steps.h"
#include "base/reporter.h"
#include "control/catalogue.h"
#include "simresults/readcase.h"
#include "simresults/readgeo.h"
#include "simresults/readvariable.h"
#include "surface/preparesurface.h"
#include "surface/readstl.h"
#include "warp/nodegrid.h"
#include "warp/refine.h"
#include "warp/warpfield.h"

namespace wfbench {

// Makes the job of tris triangles and nodes nodes in folder: afresh when fresh, else only when
// the folder has no part.stl. False (said on standard error, with the benchmark's name who) when
// genjob fails.
inline bool makejob(const std::string &folder, const std::string &tris, const std::string &nodes, bool fresh,
                    const char *who) {
  std::error_code ec;
  if (fresh)
    std::filesystem::remove_all(folder, ec);
  else if (std::filesystem::exists(folder + "/part.stl", ec))
    return true;
  const std::string make =
      "'" + wf::exefolder() + "genjob' '" + folder + "' --tris " + tris + " --nodes " + nodes + " >/dev/null";
  if (std::system(make.c_str()) == 0) return true;
  std::fprintf(stderr, "%s: genjob failed\n", who);
  return false;
}

// The refinement of the benchmarks' refining deck (*MINE 0.05 *MAXE 0.12).
inline wf::RefineParams refiningparams() {
  wf::RefineParams refine;
  refine.minedge = 0.05;
  refine.maxedge = 0.12;
  refine.refinetolsq = 1e-6;
  return refine;
}

struct BenchJob {
  std::FILE *devnull = std::fopen("/dev/null", "w");
  wf::Reporter rep{devnull};
  wf::CaseInfo info;
  wf::Simulation sim;
  wf::NodeGrid grid;
  wf::StlMemory memory;
  wf::SurfaceMesh mesh0;  // the prepared surface, before the warp
  wf::EdgeTable edges0;

  // Moves into folder and reads the case file.
  explicit BenchJob(const std::string &folder) {
    std::error_code ec;
    std::filesystem::current_path(folder, ec);
    wf::setfpmode();
    info = wf::readcase("job.case");
  }
  BenchJob(const BenchJob &) = delete;
  BenchJob &operator=(const BenchJob &) = delete;
  ~BenchJob() {
    if (devnull) std::fclose(devnull);
  }
  void loadmesh() {
    sim = wf::Simulation();
    wf::readgeofile(wf::meshfilename(info, "job", info.meshnums.back()), sim);
    wf::marknodes(sim);
  }
  void makegrid() { grid = wf::nodegridstep(rep, sim); }
  void loaddisplacements() {
    wf::readvariablefile("results/job00_" + std::to_string(info.resultnums.back()) + ".dis.ens", sim.resultsbinary,
                         sim.nnodes, 3, sim.nodedisp);
  }
  void preparesurface() {
    wf::RawSurface raw = wf::readstlstep(rep, "part.stl", memory);
    mesh0 = wf::SurfaceMesh();
    edges0 = wf::EdgeTable();
    wf::PreparedSurface prep = wf::preparesurfacestep(rep, raw, wf::Tolerances(), "part.stl", memory.path);
    mesh0 = std::move(prep.mesh);
    edges0 = std::move(prep.edges);
  }
  // All of it, in the run's order.
  void loadall() {
    loadmesh();
    makegrid();
    loaddisplacements();
    preparesurface();
  }
  // The field of the default deck on this job.
  wf::WarpField field() const {
    wf::WarpField f;
    f.sim = &sim;
    f.grid = &grid;
    f.params.buildplane = mesh0.box.min[2];
    return f;
  }
};

}  // namespace wfbench

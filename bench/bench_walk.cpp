// SPDX-License-Identifier: GPL-3.0-or-later
// The warp's two loops on the large generated job, apart from the rest of a run: the packing of
// the grid's nodes, the vertex loop (the nodes read packed and read from the grid's lists) and
// the refinement walk (*MINE 0.05 *MAXE 0.12, about 1.1 M -> 2.2 M triangles), each on one and
// on two threads with the wall time and the CPU time of all threads, the median of `repeats`
// runs. The job is made by genjob in folder unless it is there already.
//
//   bench_walk [folder (/tmp/bench_walk)] [repeats (5)] [triangles (1100000)] [nodes (1000000)]
#include <omp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "benchclock.h"
#include "benchjob.h"
#include "warp/refine.h"
#include "warp/warpstl.h"

namespace {

using wfbench::cpunow;
using wfbench::now;

struct Timing {
  double wall = 0, cpu = 0;
};

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// Median wall and CPU time of repeats runs of f, prepare (untimed) before each.
Timing timed(int repeats, const std::function<void()> &prepare, const std::function<void()> &f) {
  std::vector<double> walls, cpus;
  for (int r = 0; r < repeats; ++r) {
    if (prepare) prepare();
    const double t0 = now(), c0 = cpunow();
    f();
    cpus.push_back(cpunow() - c0);
    walls.push_back(now() - t0);
  }
  return {median(walls), median(cpus)};
}

void line(const char *what, int threads, const Timing &t, const std::string &note = "") {
  std::printf("%-30s %d thread%s  wall %7.3f s  CPU %7.3f s  %s\n", what, threads, threads > 1 ? "s" : " ", t.wall,
              t.cpu, note.c_str());
}

}  // namespace

int main(int argc, char **argv) {
  const std::string folder = argc > 1 ? argv[1] : "/tmp/bench_walk";
  const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
  const std::string tris = argc > 3 ? argv[3] : "1100000";
  const std::string nodes = argc > 4 ? argv[4] : "1000000";
  if (!wfbench::makejob(folder, tris, nodes, false, "bench_walk")) return 1;
  wfbench::BenchJob job(folder);
  job.loadall();
  const wf::WarpField field = job.field();
  const wf::RefineParams refine = wfbench::refiningparams();

  std::printf("==== job: %s triangles (%d vertices, %d edges), %d nodes (%d x %d x %d cells); median of %d\n",
              tris.c_str(), job.mesh0.nvrt, job.edges0.n, job.sim.nnodes, job.grid.nx, job.grid.ny, job.grid.nz,
              repeats);
  for (int threads : {1, 2}) {
    omp_set_num_threads(threads);
    wf::RingNodes ring;
    line("pack the nodes", threads, timed(repeats, nullptr, [&] { ring = wf::packnodes(job.sim, job.grid); }));
    wf::WarpField listed = field, packed = field;
    packed.ringnodes = ring.data();
    wf::SurfaceMesh mesh;
    for (const wf::WarpField *f : {&listed, &packed}) {
      const Timing t = timed(
          repeats,
          [&] {
            mesh = job.mesh0;
            mesh.prewarp = mesh.vrt;
          },
          [&] {
            std::vector<wf::WarpWork> works = wf::threadwork(*f);
            double *vrt = mesh.vrt.data();
            const int32_t n = mesh.nvrt;
            const wf::WarpField &fl = *f;
#pragma omp parallel default(none) shared(fl, vrt, works) firstprivate(n)
            {
              wf::setfpmode();
              wf::WarpWork &work = works[static_cast<size_t>(omp_get_thread_num())];
#pragma omp for schedule(dynamic, 16)
              for (int32_t i = 0; i < n; ++i) wf::warpvertex(fl, vrt + 3 * static_cast<size_t>(i), work);
            }
          });
      line(f == &listed ? "vertex loop, nodes listed" : "vertex loop, nodes packed", threads, t);
    }
    wf::SurfaceMesh warped = job.mesh0;
    warped.prewarp = warped.vrt;
    wf::warpvertices(field, warped);
    wf::EdgeTable edges;
    wf::RefineCounts counts;
    const Timing t = timed(
        repeats,
        [&] {
          mesh = warped;
          edges = job.edges0;
        },
        [&] { counts = wf::refinesurface(field, refine, mesh, edges, nullptr); });
    line("refinement walk", threads, t,
         std::to_string(job.mesh0.ntri) + " -> " + std::to_string(counts.active) + " triangles, " +
             std::to_string(edges.n) + " edges");
  }
  return 0;
}

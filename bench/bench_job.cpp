// SPDX-License-Identifier: GPL-3.0-or-later
// The large default job, phase by phase and whole: a job of about 1.1 M surface triangles and
// 1 M mesh nodes made by genjob, then on one and on two threads
//   surface preparation (read, snap, merge, edges), the vertex loop, the refinement walk (with
//   *MINE 0.05 *MAXE 0.12, which refines to about 2.4 M triangles), normals, the STL write,
//   the model text of the package (formatted, written and deflated for the zip) and its zip
//   (each on one and on two threads, with the CPU time of all threads beside the wall time),
// and the whole program on the default deck (package on) and on the refining deck (package off),
// and a scan job: the part's surface as nominal and reference against a scan of as many
// triangles (the part sheared by 1 % of its height in x).
// Each figure is the best of `repeats` runs.
//
//   bench_job [folder (/tmp/bench_job)] [repeats (3)] [triangles (1100000)] [nodes (1000000)]
#include <omp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "app/steps.h"
#include "base/reporter.h"
#include "benchclock.h"
#include "benchjob.h"
#include "control/catalogue.h"
#include "outputs/outcommon.h"
#include "outputs/package3mf.h"
#include "outputs/zippackage.h"
#include "simresults/readcase.h"
#include "simresults/readgeo.h"
#include "simresults/readvariable.h"
#include "surface/normals.h"
#include "surface/preparesurface.h"
#include "surface/readstl.h"
#include "surface/writestl.h"
#include "warp/nodegrid.h"
#include "warp/refine.h"
#include "warp/warpstl.h"

namespace fs = std::filesystem;

namespace {

using wfbench::cpunow;
using wfbench::now;

// Best wall time of repeats runs of f; prepare runs before each, untimed.
double best(int repeats, const std::function<void()> &prepare, const std::function<void()> &f) {
  double b = 1e30;
  for (int r = 0; r < repeats; ++r) {
    if (prepare) prepare();
    const double t0 = now();
    f();
    b = std::min(b, now() - t0);
  }
  return b;
}

// Best wall time and best CPU time (all threads of the process) of repeats runs of f.
struct Timing {
  double wall = 1e30, cpu = 1e30;
};
Timing bestwithcpu(int repeats, const std::function<void()> &f) {
  Timing b;
  for (int r = 0; r < repeats; ++r) {
    const double t0 = now(), c0 = cpunow();
    f();
    b.cpu = std::min(b.cpu, cpunow() - c0);
    b.wall = std::min(b.wall, now() - t0);
  }
  return b;
}

// Runs a program in folder with OMP_NUM_THREADS set, its output discarded; returns the wall time.
double runprogram(const std::string &exe, const std::string &arg, const std::string &folder, int threads) {
  std::fflush(stdout);
  const double t0 = now();
  const pid_t pid = fork();
  if (pid == 0) {
    if (chdir(folder.c_str()) != 0) _exit(127);
    if (!std::freopen("/dev/null", "w", stdout)) _exit(127);
    setenv("OMP_NUM_THREADS", std::to_string(threads).c_str(), 1);
    setenv("CRVT_TSR_SIM_TMP", (folder + "/tmp").c_str(), 1);
    execl(exe.c_str(), exe.c_str(), arg.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    std::fprintf(stderr, "%s %s exited with %d\n", exe.c_str(), arg.c_str(), status);
  return now() - t0;
}

void writetext(const std::string &path, const std::string &text) {
  std::FILE *f = std::fopen(path.c_str(), "w");
  if (!f) return;
  std::fputs(text.c_str(), f);
  std::fclose(f);
}

}  // namespace

int main(int argc, char **argv) {
  const std::string folder = argc > 1 ? argv[1] : "/tmp/bench_job";
  const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;
  const std::string tris = argc > 3 ? argv[3] : "1100000";
  const std::string nodes = argc > 4 ? argv[4] : "1000000";
  const std::string bindir = wf::exefolder();
  const std::string warpforge = bindir + "warpforge";

  if (!wfbench::makejob(folder, tris, nodes, true, "bench_job")) return 1;
  writetext(folder + "/default.deck", "*INPU\njob\n*IOFF\n-1\n");
  writetext(folder + "/refine.deck", "*INPU\njob\n*IOFF\n-1\n*MINE\n0.05\n*MAXE\n0.12\n*N3DM\n");

  wfbench::BenchJob job(folder);
  std::error_code ec;

  // The simulation, loaded once.
  const double tload = best(1, nullptr, [&] { job.loadmesh(); });
  const double tgrid = best(repeats, nullptr, [&] { job.makegrid(); });
  job.loaddisplacements();
  // Surface preparation: read, snap, merge, edges.
  const double tprep = best(repeats, nullptr, [&] { job.preparesurface(); });
  const wf::Simulation &sim = job.sim;
  const wf::NodeGrid &grid = job.grid;
  const wf::SurfaceMesh &mesh0 = job.mesh0;
  const wf::EdgeTable &edges0 = job.edges0;
  const wf::WarpField field = job.field();
  const wf::RefineParams refine = wfbench::refiningparams();

  std::printf("==== job: %s triangles, %d nodes (%d x %d x %d cells); best of %d\n", tris.c_str(), sim.nnodes, grid.nx,
              grid.ny, grid.nz, repeats);
  std::printf("%-34s %8.3f s\n", "load mesh (geometry file)", tload);
  std::printf("%-34s %8.3f s\n", "initgrid", tgrid);
  std::printf("%-34s %8.3f s   (%d -> %d vertices, %d edges)\n", "surface preparation", tprep, 3 * mesh0.ntri,
              mesh0.nvrt, edges0.n);

  wf::SurfaceMesh warped, refined;
  for (int threads : {1, 2}) {
    omp_set_num_threads(threads);
    wf::SurfaceMesh mesh;
    wf::EdgeTable edges;
    const double tloop = best(
        repeats,
        [&] {
          mesh = mesh0;
          mesh.prewarp = mesh.vrt;
        },
        [&] { wf::warpvertices(field, mesh); });
    warped = mesh;
    wf::RefineCounts counts;
    const double twalk = best(
        repeats,
        [&] {
          mesh = warped;
          edges = edges0;
        },
        [&] { counts = wf::refinesurface(field, refine, mesh, edges, nullptr); });
    refined = mesh;
    std::printf("%-34s %8.3f s   (%d threads)\n", "vertex loop", tloop, threads);
    std::printf("%-34s %8.3f s   (%d threads; %d -> %d triangles)\n", "refinement walk", twalk, threads, mesh0.ntri,
                counts.active);
  }

  std::vector<double> nrgtri;
  const double tnormals = best(repeats, nullptr, [&] {
    wf::facetnormals(warped.vrt.data(), static_cast<size_t>(warped.nvrt), warped.tri.data(), warped.ntri, nrgtri);
  });
  const double twrite =
      best(repeats, nullptr, [&] { wf::writestl(warped, &nrgtri, "bench_out.stl", wf::StlForm::binary); });
  const std::vector<float> disp = wf::dispsingle(warped, "bench, dispsingle, 1");
  fs::create_directories("bench_color/3D", ec);
  std::printf("%-34s %8.3f s\n", "normals", tnormals);
  std::printf("%-34s %8.3f s\n", "STL write (binary)", twrite);
  for (int threads : {1, 2}) {
    omp_set_num_threads(threads);
    // The model text as the package makes it: formatted, written and deflated for the zip,
    // which then stores the stream.
    wf::Deflated packed;
    bool deflated = false;
    const Timing tmodel = bestwithcpu(repeats, [&] {
      deflated = wf::writemodel(warped, disp, "bench_color/3D/3dmodel.model", "bench_color/3D/3dmodel.model", &packed);
    });
    wf::DeflatedMember given;
    given.name = "3D/3dmodel.model";
    given.packed = deflated ? &packed : nullptr;
    const Timing tzip = bestwithcpu(repeats, [&] {
      char list[] = "3D/3dmodel.model\n";
      wf::zippackage("bench_color.3mf", "bench_color", list, &given);
    });
    std::printf("%-34s %8.3f s   (%d threads; CPU %.3f s; %.1f MB)\n", "model text", tmodel.wall, threads, tmodel.cpu,
                static_cast<double>(fs::file_size("bench_color/3D/3dmodel.model", ec)) / 1e6);
    std::printf("%-34s %8.3f s   (%d threads; CPU %.3f s; %.1f MB)\n", "zip", tzip.wall, threads, tzip.cpu,
                static_cast<double>(fs::file_size("bench_color.3mf", ec)) / 1e6);
  }

  for (int threads : {1, 2}) {
    double tdef = 1e30, tref = 1e30;
    for (int r = 0; r < repeats; ++r) {
      tdef = std::min(tdef, runprogram(warpforge, "default.deck", folder, threads));
      tref = std::min(tref, runprogram(warpforge, "refine.deck", folder, threads));
    }
    std::printf("%-34s %8.3f s   (%d threads)\n", "whole run, default (package on)", tdef, threads);
    std::printf("%-34s %8.3f s   (%d threads)\n", "whole run, refining (package off)", tref, threads);
  }

  // The scan: the part's binary STL with x moved by 0.01 z.
  {
    std::ifstream in(folder + "/part.stl", std::ios::binary);
    std::string stl((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    uint32_t n = 0;
    if (stl.size() >= 84) std::memcpy(&n, stl.data() + 80, 4);
    if (stl.size() < 84 + 50ull * n) {
      std::fprintf(stderr, "bench_job: part.stl is not the binary STL expected\n");
      return 1;
    }
    for (uint64_t t = 0; t < n; ++t)
      for (int c = 0; c < 3; ++c) {
        char *p = stl.data() + 84 + 50 * t + 12 + 12 * c;
        float x, z;
        std::memcpy(&x, p, 4);
        std::memcpy(&z, p + 8, 4);
        x += 0.01f * z;
        std::memcpy(p, &x, 4);
      }
    std::ofstream(folder + "/scan.stl", std::ios::binary).write(stl.data(), static_cast<std::streamsize>(stl.size()));
    writetext(folder + "/scan.deck", "*REFG\npart.stl\n*SCNG\nscan.stl\n*OUTP\nscanwarp.stl\n");
    for (int threads : {1, 2}) {
      double tscan = 1e30;
      for (int r = 0; r < repeats; ++r) tscan = std::min(tscan, runprogram(warpforge, "scan.deck", folder, threads));
      std::printf("%-34s %8.3f s   (%d threads; %u-triangle scan)\n", "whole run, scan job", tscan, threads, n);
    }
  }
  return 0;
}

// SPDX-License-Identifier: GPL-3.0-or-later
// Surface preparation phase by phase, on one thread: the snap (minimum edge, tolerance, lattice
// keys), the vertex merge, and the edge table with the count of inversely oriented edges (as the
// preparation asks for it on a watertight surface), then the whole preparation as one call.
// The surface is the part of the large generated job (genjob, 1.1 M triangles): read once from
// <folder>/part.stl, made with genjob when the folder does not exist yet, and copied before every
// repeat so that a run of the job elsewhere cannot change it underfoot. The heap is set up as the
// program sets it (freed memory is kept).
//
// Each repeat runs the phases twice: in a fresh process (a forked child, whose heap has no freed
// memory to hand out, as in a run of the program) and again in this one (whose heap keeps what
// the earlier repeats freed). Each phase prints the CPU time of the thread (seconds), the least
// and the median of `repeats` runs, and the wall time of the least.
//
//   bench_prepare [folder (/tmp/bench_job)] [repeats (7)] [triangles (1100000)] [nodes (1000000)]
#include <malloc.h>
#include <omp.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "app/steps.h"
#include "base/reporter.h"
#include "benchjob.h"
#include "control/catalogue.h"
#include "surface/edges.h"
#include "surface/preparesurface.h"
#include "surface/readstl.h"
#include "warp/warpstl.h"

namespace fs = std::filesystem;

namespace {

double cputime() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

double walltime() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

struct Phase {
  const char *name;
  std::vector<double> cpu, wall;
  void add(double c, double w) { cpu.push_back(c), wall.push_back(w); }
  void print() const {
    if (cpu.empty()) return;
    std::vector<double> s = cpu;
    std::sort(s.begin(), s.end());
    const size_t best = static_cast<size_t>(std::min_element(cpu.begin(), cpu.end()) - cpu.begin());
    std::printf("%-26s cpu min %7.4f s  median %7.4f s   wall %7.4f s\n", name, s.front(), s[s.size() / 2], wall[best]);
  }
};

// The count of inversely oriented edges comes with the edge table where the table reports it;
// otherwise the preparation asks for it in a pass of its own.
template <class Counts>
int64_t invertedof(const Counts &counts, const wf::SurfaceMesh &mesh, const wf::EdgeTable &edges) {
  if constexpr (requires { counts.inverted; })
    return counts.inverted;
  else
    return wf::countinverted(mesh, edges);
}

struct Figures {
  double cpu[4] = {0, 0, 0, 0}, wall[4] = {0, 0, 0, 0};
  int32_t nvrt = 0, nedge = 0;
  int64_t inverted = -1;
};

// The phases one after the other on a copy of the soup, then the whole preparation on another.
Figures runphases(wf::Reporter &rep, const wf::RawSurface &source, const std::string &path) {
  Figures f;
  {
    wf::RawSurface raw = source;
    wf::SurfaceMesh mesh;
    wf::EdgeTable edges;
    std::vector<uint64_t> keys;
    std::vector<double> triedgesq;
    double c0 = cputime(), w0 = walltime();
    const double minedge = wf::minimumedge(raw);
    const wf::SnapTolerance st = wf::snaptolerance(raw.box, minedge, wf::Tolerances());
    wf::snapvertices(raw, st.pitch(), &keys);
    double c1 = cputime(), w1 = walltime();
    f.cpu[0] = c1 - c0, f.wall[0] = w1 - w0;
    c0 = c1, w0 = w1;
    wf::mergevertices(raw, mesh, triedgesq, &keys);
    c1 = cputime(), w1 = walltime();
    f.cpu[1] = c1 - c0, f.wall[1] = w1 - w0;
    keys = std::vector<uint64_t>();
    c0 = cputime(), w0 = walltime();
    const wf::EdgeCounts counts = wf::buildedges(mesh, triedgesq, edges);
    f.inverted = invertedof(counts, mesh, edges);
    c1 = cputime(), w1 = walltime();
    f.cpu[2] = c1 - c0, f.wall[2] = w1 - w0;
    f.nvrt = mesh.nvrt, f.nedge = edges.n;
  }
  wf::RawSurface raw = source;
  const double c0 = cputime(), w0 = walltime();
  wf::preparesurfacestep(rep, raw, wf::Tolerances(), "part.stl", path);
  f.cpu[3] = cputime() - c0, f.wall[3] = walltime() - w0;
  return f;
}

}  // namespace

int main(int argc, char **argv) {
  const std::string folder = argc > 1 ? argv[1] : "/tmp/bench_job";
  const int repeats = argc > 2 ? std::max(1, std::atoi(argv[2])) : 7;
  const std::string tris = argc > 3 ? argv[3] : "1100000";
  const std::string nodes = argc > 4 ? argv[4] : "1000000";
  mallopt(M_MMAP_THRESHOLD, 1 << 30);  // as the program does
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  omp_set_num_threads(1);

  if (!wfbench::makejob(folder, tris, nodes, false, "bench_prepare")) return 1;
  std::FILE *devnull = std::fopen("/dev/null", "w");
  wf::Reporter rep(devnull);
  wf::setfpmode();
  wf::StlMemory memory;
  const wf::RawSurface source = wf::readstlstep(rep, folder + "/part.stl", memory);

  Phase phases[2][4] = {
      {{"snap", {}, {}}, {"merge", {}, {}}, {"edges (+ inverted count)", {}, {}}, {"preparesurface (all)", {}, {}}},
      {{"snap", {}, {}}, {"merge", {}, {}}, {"edges (+ inverted count)", {}, {}}, {"preparesurface (all)", {}, {}}}};
  Figures f;
  for (int r = 0; r < repeats; ++r) {
    // Cold: a fresh process, whose heap has no freed memory to give, as in a run of the program.
    int fds[2];
    if (pipe(fds) != 0) return 1;
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
      close(fds[0]);
      const Figures g = runphases(rep, source, memory.path);
      const ssize_t w = write(fds[1], &g, sizeof g);
      _exit(w == static_cast<ssize_t>(sizeof g) ? 0 : 1);
    }
    close(fds[1]);
    const ssize_t got = read(fds[0], &f, sizeof f);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (got != static_cast<ssize_t>(sizeof f)) return 1;
    for (int k = 0; k < 4; ++k) phases[0][k].add(f.cpu[k], f.wall[k]);
    // Warm: again in this process, whose heap keeps what the earlier repeats freed.
    f = runphases(rep, source, memory.path);
    for (int k = 0; k < 4; ++k) phases[1][k].add(f.cpu[k], f.wall[k]);
  }
  std::printf(
      "==== surface preparation: %d triangles, %d -> %d vertices, %d edges, %lld inverse;"
      " %d repeats, one thread\n",
      source.ntri, source.nvrt, f.nvrt, f.nedge, static_cast<long long>(f.inverted), repeats);
  for (int m = 0; m < 2; ++m) {
    std::printf(m == 0 ? "-- in a fresh process each time\n" : "-- repeated in one process\n");
    for (int k = 0; k < 4; ++k) phases[m][k].print();
  }
  std::fclose(devnull);
  return 0;
}

// SPDX-License-Identifier: GPL-2.0-or-later
// Warp benchmark: a job of about a million mesh nodes and a million surface triangles built in
// process, timed per phase: the node grid, the surface preparation, the vertex loop on one and
// on two threads, the refinement walk, and the whole warp.
//   bench_warp [nodes-per-axis (100)] [cells-per-cube-face (289)] [minedge (0.1)] [repeats (3)]
#include <omp.h>
#include <xmmintrin.h>
#include <unistd.h>

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "control/messages.h"
#include "control/runstate.h"
#include "surface/surfacemesh.h"
#include "warp/initgrid.h"
#include "warp/refine.h"
#include "warp/vertexloop.h"
#include "warp/warpstl.h"

namespace {

double cpu() {
  timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return ts.tv_sec + 1e-9 * ts.tv_nsec;
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// The surface arrays as the preparation left them, to start every timed warp from.
struct Surface {
  int32_t nvrt, ntri, nedge;
  std::vector<double> stlvrt, edgelen;
  std::vector<int32_t> stltri, edgevrt, edgetri, edgeopp, edgenbr;
  void save(const wf::RunState &rs) {
    nvrt = rs.nvrt, ntri = rs.ntri, nedge = rs.nedge;
    stlvrt = rs.stlvrt, edgelen = rs.edgelen, stltri = rs.stltri;
    edgevrt = rs.edgevrt, edgetri = rs.edgetri, edgeopp = rs.edgeopp, edgenbr = rs.edgenbr;
  }
  void restore(wf::RunState &rs) const {
    rs.nvrt = nvrt, rs.ntri = ntri, rs.nedge = nedge;
    rs.stlvrt = stlvrt, rs.edgelen = edgelen, rs.stltri = stltri;
    rs.edgevrt = edgevrt, rs.edgetri = edgetri, rs.edgeopp = edgeopp, rs.edgenbr = edgenbr;
  }
};

// Silences the console of the steps (their lines would swamp the figures).
struct Quiet {
  int saved = -1;
  Quiet() {
    std::fflush(stdout);
    saved = dup(1);
    FILE *null = std::fopen("/dev/null", "w");
    dup2(fileno(null), 1);
    std::fclose(null);
  }
  ~Quiet() {
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
  }
};

}  // namespace

int main(int argc, char **argv) {
  const int nodesperaxis = argc > 1 ? std::atoi(argv[1]) : 100;
  const int facecells = argc > 2 ? std::atoi(argv[2]) : 289;
  const double minedge = argc > 3 ? std::atof(argv[3]) : 0.1;
  const int repeats = argc > 4 ? std::atoi(argv[4]) : 3;
  const int maxthreads = omp_get_num_procs() >= 2 ? 2 : 1;

  static wf::RunState rs;
  rs.snaptolsq = rs.snaptol * rs.snaptol;
  rs.refinetolsq = rs.refinetol * rs.refinetol;
  rs.halfexponent = 0.5 * rs.avgexponent;
  rs.minedge = minedge;

  // Mesh: a structured hex grid of spacing 1 with a smooth print-like displacement field.
  const double spacing = 1.0;
  const int na = nodesperaxis;
  rs.nnodes = na * na * na;
  rs.nodexyz.resize(3 * static_cast<size_t>(rs.nnodes));
  rs.nodedisp.resize(3 * static_cast<size_t>(rs.nnodes));
  rs.nodeactive.assign(static_cast<size_t>(rs.nnodes), 255);
  const double size = (na - 1) * spacing, mid = 0.5 * size;
  size_t n = 0;
  for (int k = 0; k < na; ++k)
    for (int j = 0; j < na; ++j)
      for (int i = 0; i < na; ++i, ++n) {
        double x = i * spacing, y = j * spacing, z = k * spacing;
        rs.nodexyz[3 * n] = x, rs.nodexyz[3 * n + 1] = y, rs.nodexyz[3 * n + 2] = z;
        double h = z / size;
        rs.nodedisp[3 * n] = -0.004 * (x - mid) * h;
        rs.nodedisp[3 * n + 1] = -0.004 * (y - mid) * h + 0.05 * std::sin(0.2 * x);
        rs.nodedisp[3 * n + 2] = -0.002 * z - 0.0002 * ((x - mid) * (x - mid) + (y - mid) * (y - mid)) * h;
      }

  double t0 = now();
  {
    Quiet q;
    wf::initgrid(rs);
  }
  double tgrid = now() - t0;
  std::printf("mesh nodes            %d (grid %d x %d x %d)\n", rs.nnodes, rs.gridnx, rs.gridny,
              rs.gridnz);
  std::printf("initgrid              %8.3f s  %6.2f M nodes/s\n", tgrid, rs.nnodes / tgrid / 1e6);

  // Surface: a closed cube inside the mesh, facecells x facecells squares per face.
  const double side = 0.8 * size, lo = 0.1 * size;
  std::vector<double> soup;
  soup.reserve(static_cast<size_t>(6) * facecells * facecells * 18);
  {
    struct Face {
      double o[3], u[3], v[3];
    };
    const double L = side;
    const Face faces[6] = {{{0, 0, 0}, {0, L, 0}, {L, 0, 0}}, {{0, 0, L}, {L, 0, 0}, {0, L, 0}},
                           {{0, 0, 0}, {L, 0, 0}, {0, 0, L}}, {{0, L, 0}, {0, 0, L}, {L, 0, 0}},
                           {{0, 0, 0}, {0, 0, L}, {0, L, 0}}, {{L, 0, 0}, {0, L, 0}, {0, 0, L}}};
    auto put = [&](const Face &f, int i, int j) {
      for (int a = 0; a < 3; ++a)
        soup.push_back(lo + f.o[a] + (double(i) / facecells) * f.u[a] + (double(j) / facecells) * f.v[a]);
    };
    for (const Face &f : faces)
      for (int j = 0; j < facecells; ++j)
        for (int i = 0; i < facecells; ++i) {
          put(f, i, j), put(f, i + 1, j), put(f, i + 1, j + 1);
          put(f, i, j), put(f, i + 1, j + 1), put(f, i, j + 1);
        }
  }
  rs.rawvrt = soup;
  rs.nrawvrt = static_cast<int32_t>(soup.size() / 3);
  rs.ntri = rs.nrawvrt / 3;
  for (int a = 0; a < 3; ++a) {
    rs.stlbbox.min[a] = lo;
    rs.stlbbox.max[a] = lo + side;
    rs.stlbbox.size[a] = side;
    rs.stlbbox.centre[a] = lo + 0.5 * side;
  }
  rs.stlfiles.v = {"bench.stl"};
  rs.stlfiles.n = 1;
  t0 = now();
  {
    Quiet q;
    int status = 0;
    bool result = true;
    wf::preparesurface(rs, status, true, false, result);
  }
  double tprep = now() - t0;
  std::printf("surface triangles     %d, vertices %d, edges %d, edge length %.3f\n", rs.ntri,
              rs.nvrt, rs.nedge, side / facecells);
  std::printf("preparesurface        %8.3f s\n", tprep);
  wf::release(rs.triedge);
  Surface pristine;
  pristine.save(rs);

  // The vertex loop, one and two threads taken in turn so that both see the same machine. Two
  // reference loops of the same length tell the work from the schedule: the same vertices under a
  // static schedule (what the work allows), and the dynamic chunk-1 schedule over plain arithmetic
  // as long as one vertex (what the schedule allows: one shared counter taken per iteration).
  const int32_t nv = rs.nvrt;
  std::vector<double> sink(2 * 8 * static_cast<size_t>(maxthreads), 0.0);
  int spin = 0;
  auto vertexloop = [&](int kind) {
    pristine.restore(rs);
    {
      Quiet q;
      wf::beginwarp(rs);
    }
    double t = now();
    if (kind == 0) {
      wf::warpvertices(rs);
    } else if (kind == 1) {
      const wf::RunState &crs = rs;
      double *vrt = rs.stlvrt.data();
      const int navg = rs.navgnodes;
#pragma omp parallel default(none) shared(crs, vrt) firstprivate(navg, nv)
      {
        _mm_setcsr(_mm_getcsr() | 0x8040);
        std::vector<double> d2(static_cast<size_t>(navg)), w(static_cast<size_t>(navg));
        std::vector<int32_t> nd(static_cast<size_t>(navg));
#pragma omp for schedule(static)
        for (int32_t i = 0; i < nv; ++i)
          wf::warpvertex(crs, vrt + 3 * static_cast<size_t>(i), d2.data(), nd.data(), w.data(), navg);
      }
    } else {
      double *out = sink.data();
#pragma omp parallel default(none) shared(out) firstprivate(nv, spin)
      {
        double *mine = out + 8 * static_cast<size_t>(omp_get_thread_num());
#pragma omp for schedule(dynamic, 1)
        for (int32_t i = 0; i < nv; ++i) {
          double s = i;
          for (int k = 0; k < spin; ++k) s = std::sqrt(s + k);
          mine[0] += s;
        }
      }
    }
    return now() - t;
  };
  // The arithmetic chain is sized to one vertex of the single-thread loop.
  auto quickest = [&](int kind) {
    double t = 1e30;
    for (int rep = 0; rep < 3; ++rep) t = std::min(t, vertexloop(kind));
    return t / nv;
  };
  omp_set_num_threads(1);
  const double pervertex = quickest(0);
  for (spin = 16; spin < (1 << 24); spin *= 2) {
    if (quickest(2) >= pervertex) break;
  }
  spin = static_cast<int>(spin * pervertex / quickest(2));

  const char *names[3] = {"vertex loop", "  static schedule", "  schedule alone"};
  double best[3][3];
  for (auto &b : best) b[0] = b[1] = b[2] = 1e30;
  std::vector<double> warped[3];
  for (int rep = 0; rep < repeats; ++rep)
    for (int kind = 0; kind < 3; ++kind)
      for (int threads = 1; threads <= maxthreads; ++threads) {
        omp_set_num_threads(threads);
        const double t = vertexloop(kind);
        if (t < best[kind][threads]) best[kind][threads] = t;
        if (kind == 0) warped[threads] = rs.stlvrt;
      }
  for (int kind = 0; kind < 3; ++kind) {
    std::printf("%-20s  1 thread %6.3f s", names[kind], best[kind][1]);
    if (kind == 0) std::printf(" (%5.3f M vertices/s)", nv / best[kind][1] / 1e6);
    if (maxthreads > 1) {
      std::printf(", %d threads %6.3f s", maxthreads, best[kind][maxthreads]);
      if (kind == 0) std::printf(" (%5.3f M vertices/s)", nv / best[kind][maxthreads] / 1e6);
      std::printf(", speed-up %4.2f", best[kind][1] / best[kind][maxthreads]);
    }
    std::printf("\n");
  }
  if (maxthreads > 1) {
    std::printf("  per-iteration cost of the dynamic schedule on %d threads: %.0f ns; results %s\n",
                maxthreads, (2 * best[2][maxthreads] - best[2][1]) / nv * 1e9,
                warped[1] == warped[maxthreads] ? "identical" : "DIFFERENT");
  }
  std::printf("  (best of %d runs each; arithmetic chain of %d steps per iteration)\n", repeats, spin);
  omp_set_num_threads(maxthreads);
  vertexloop(0);

  // The walk on its own, after the vertex loop of the last run.
  {
    std::vector<double> d2(rs.navgnodes), w(rs.navgnodes);
    std::vector<int32_t> nd(rs.navgnodes);
    const int32_t vrt0 = rs.nvrt, tri0 = rs.ntri;
    t0 = now();
    double c0 = cpu();
    {
      Quiet q;
      wf::refinesurface(rs, d2.data(), nd.data(), w.data(), rs.navgnodes);
    }
    double twalk = now() - t0, cwalk = cpu() - c0;
    std::printf("refinement walk       %8.3f s  %6.3f M edges visited/s  (cpu %.3f s; %d edges, %d "
                "new vertices, %d -> %d triangles)\n",
                twalk, rs.nedge / twalk / 1e6, cwalk, rs.nedge, rs.nvrt - vrt0, tri0, rs.ntri);
  }

  // The whole warp as the driver calls it.
  pristine.restore(rs);
  omp_set_num_threads(maxthreads);
  t0 = now();
  {
    Quiet q;
    wf::warpstl(rs);
  }
  double twhole = now() - t0;
  std::printf("warpstl (%d threads)   %8.3f s  (%d vertices, %d triangles after)\n", maxthreads,
              twhole, rs.nvrt, rs.ntri);
  return 0;
}

// SPDX-License-Identifier: GPL-2.0-or-later
// Surface mesh timings: a finely tessellated closed torus (about a million triangles by
// default) is written in the binary and the text form, read back, prepared and written again.
// Usage: bench_surface [triangles] [folder] [keep]   (keep: leave the files in the folder)
#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "control/messages.h"
#include "control/runstate.h"
#include "surface/normals.h"
#include "surface/readstl.h"
#include "surface/surfacemesh.h"
#include "surface/writestl.h"

namespace {

double seconds(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Processor time of the process (user and system), to tell the work from waiting on a busy
// machine.
double cpuseconds() {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec + 1e-6 * (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec);
}

struct Timer {
  std::chrono::steady_clock::time_point wall = std::chrono::steady_clock::now();
  double cpu = cpuseconds();
};

long peakkb() {
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_maxrss;
}

// Closed torus of nu x nv quads, each split in two outward triangles.
void torus(wf::RunState &rs, int nu, int nv) {
  const double pi = 3.14159265358979323846, big = 50.0, small = 15.0;
  rs.nvrt = nu * nv;
  rs.ntri = 2 * nu * nv;
  rs.stlvrt.resize(3 * static_cast<size_t>(rs.nvrt));
  rs.stltri.resize(3 * static_cast<size_t>(rs.ntri));
  for (int i = 0; i < nu; ++i) {
    double a = 2 * pi * i / nu;
    for (int j = 0; j < nv; ++j) {
      double b = 2 * pi * j / nv;
      double *p = &rs.stlvrt[3 * (static_cast<size_t>(i) * nv + j)];
      p[0] = (big + small * std::cos(b)) * std::cos(a);
      p[1] = (big + small * std::cos(b)) * std::sin(a);
      p[2] = small * std::sin(b) + small;  // standing on the plate
    }
  }
  size_t t = 0;
  auto id = [&](int i, int j) { return ((i % nu) * nv + (j % nv)) + 1; };
  for (int i = 0; i < nu; ++i) {
    for (int j = 0; j < nv; ++j) {
      int a = id(i, j), b = id(i + 1, j), c = id(i + 1, j + 1), d = id(i, j + 1);
      int32_t *q = &rs.stltri[3 * t];
      q[0] = a; q[1] = b; q[2] = c;
      q[3] = a; q[4] = c; q[5] = d;
      t += 2;
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  long target = argc > 1 ? std::atol(argv[1]) : 1000000;
  std::string folder = argc > 2 ? argv[2] : std::filesystem::temp_directory_path().string() + "/bench_surface";
  std::filesystem::create_directories(folder);
  int nv = static_cast<int>(std::lround(std::sqrt(target / 4.0)));
  if (nv < 3) nv = 3;
  int nu = static_cast<int>(std::max(3L, target / (2L * nv)));

  auto rs = std::make_unique<wf::RunState>();
  rs->stlfiles.v = {folder + "/torus.stl"};
  rs->stlfiles.n = 1;
  torus(*rs, nu, nv);
  const long ntri = rs->ntri;
  const std::string bin = folder + "/torus.stl", text = folder + "/torus_ascii.stl";

  // The figures are gathered and printed at the end, below the console lines of the steps.
  std::vector<std::string> figures;
  auto note = [&](const char *what, const Timer &t) {
    char line[160];
    std::snprintf(line, sizeof line, "%-26s %8.3f s wall %8.3f s cpu", what, seconds(t.wall),
                  cpuseconds() - t.cpu);
    figures.push_back(line);
  };
  auto memory = [&](const char *what) {
    char line[160];
    long kb = peakkb();
    std::snprintf(line, sizeof line, "%-26s %8.1f MB   %6.0f bytes per triangle", what, kb / 1024.0,
                  kb * 1024.0 / static_cast<double>(ntri));
    figures.push_back(line);
  };
  int status = 0;
  bool result = false;
  try {
    Timer t;
    rs->outstlpath = bin;
    wf::writestl(*rs, 'b', true);
    note("write binary (b)", t);
    wf::normals(*rs, true, false, true);
    t = Timer();
    rs->outstlpath = text;
    wf::writestl(*rs, 'd', true);
    note("write text (d)", t);
    wf::release(rs->stlvrt);
    wf::release(rs->stltri);
    wf::release(rs->nrgtri);
    memory("peak after the writes");

    rs->stlpath = text;
    t = Timer();
    wf::readstl(*rs, false);
    note("read text", t);
    wf::release(rs->rawvrt);

    rs->stlpath = bin;
    t = Timer();
    wf::readstl(*rs, false);
    note("read binary", t);
    memory("peak after the reads");

    t = Timer();
    wf::preparesurface(*rs, status, true, false, result);
    note("preparesurface", t);
    memory("peak after preparesurface");

    t = Timer();
    wf::normals(*rs, false, true, true);
    note("normals (full)", t);
    rs->outstlpath = folder + "/torus_out.stl";
    t = Timer();
    wf::writestl(*rs, 'b', true);
    note("write binary of the mesh", t);
    memory("peak at the end");
  } catch (const wf::RunAborted &) {
    std::printf("run aborted\n");
    return 1;
  }
  std::printf("\n==== surface benchmark: %ld triangles (torus %d x %d), %ld vertices\n", ntri, nu, nv,
              static_cast<long>(rs->nvrt));
  std::printf("status %d, oriented %s, edges %ld, Euler characteristic %ld\n", status,
              result ? "yes" : "no", static_cast<long>(rs->nedge),
              static_cast<long>(rs->nvrt) + rs->ntri - rs->nedge);
  std::printf("binary file %ld bytes, text file %ld bytes\n",
              static_cast<long>(std::filesystem::file_size(bin)),
              static_cast<long>(std::filesystem::file_size(text)));
  for (const auto &f : figures) std::printf("%s\n", f.c_str());
  if (argc > 3 && std::string(argv[3]) == "keep") return 0;
  std::filesystem::remove(bin);
  std::filesystem::remove(text);
  std::filesystem::remove(folder + "/torus_out.stl");
  return 0;
}

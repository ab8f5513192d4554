// SPDX-License-Identifier: GPL-2.0-or-later
// Timing of the output steps on a surface of 1,000,000 triangles: the text report, the VTK
// file and the coloured 3MF package, with the zip (deflate) timed on its own and the rate at
// which the model member is formatted and written.
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "control/runstate.h"
#include "outputs/package3mf.h"
#include "outputs/textreport.h"
#include "outputs/vtkwriter.h"

namespace fs = std::filesystem;

namespace {

double cpu() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

double seconds(std::chrono::steady_clock::time_point a) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - a).count();
}

// nx by ny vertices on a wavy sheet, two triangles per cell, a smooth displacement field.
void buildsurface(wf::RunState &rs, int nx, int ny) {
  rs.nvrt = nx * ny;
  rs.prewarpvertices.resize(3 * static_cast<size_t>(rs.nvrt));
  rs.stlvrt.resize(3 * static_cast<size_t>(rs.nvrt));
  for (int j = 0; j < ny; ++j)
    for (int i = 0; i < nx; ++i) {
      size_t v = static_cast<size_t>(j) * nx + i;
      double x = 0.1 * i, y = 0.1 * j, z = 2.0 * std::sin(0.05 * i) * std::cos(0.07 * j);
      double d[3] = {1e-3 * std::sin(0.01 * x * y), -2e-3 * std::cos(0.3 * x), 0.05 * std::sin(0.02 * y)};
      double p[3] = {x, y, z};
      for (int k = 0; k < 3; ++k) {
        rs.prewarpvertices[3 * v + k] = p[k];
        rs.stlvrt[3 * v + k] = p[k] + d[k];
      }
    }
  rs.ntri = 2 * (nx - 1) * (ny - 1);
  rs.stltri.resize(3 * static_cast<size_t>(rs.ntri));
  size_t t = 0;
  for (int j = 0; j + 1 < ny; ++j)
    for (int i = 0; i + 1 < nx; ++i) {
      int a = j * nx + i + 1, b = a + 1, c = a + nx, d = c + 1;
      for (int k : {a, b, d, a, d, c}) rs.stltri[t++] = k;
    }
}

}  // namespace

int main() {
  const fs::path dir = fs::temp_directory_path() / ("bench_outputs_" + std::to_string(getpid()));
  fs::create_directories(dir);
  const fs::path old = fs::current_path();
  fs::current_path(dir);

  wf::RunState rs;
  buildsurface(rs, 1001, 501);
  rs.outstlpath = "bench_warp.stl";
  rs.wrtupath = "bench_warp_wrtu.txt";
  rs.wrtuflag = rs.ovtkflag = rs.o3dmflag = true;
  std::fprintf(stderr, "surface: %d vertices, %d triangles\n", rs.nvrt, rs.ntri);

  auto t0 = std::chrono::steady_clock::now();
  wf::writetextreport(rs);
  const double ttext = seconds(t0);
  t0 = std::chrono::steady_clock::now();
  wf::writevtkstep(rs);
  const double tvtk = seconds(t0);
  t0 = std::chrono::steady_clock::now();
  wf::write3mfstep(rs);
  const double tpackage = seconds(t0);

  // The zip again, on the same five members, timed alone.
  char list[] = "_rels/.rels\n3D/_rels/3dmodel.model.rels\nHistory/history.xml\n[Content_Types].xml\n3D/3dmodel.model\n";
  t0 = std::chrono::steady_clock::now();
  const double c0 = cpu();
  const int zipstatus = wf::zippackage(rs, "again.3mf", "bench_warp_color", list);
  const double tzip = seconds(t0);
  const double czip = cpu() - c0;

  const double mb = 1e6;
  const double textsize = static_cast<double>(fs::file_size("bench_warp_wrtu.txt"));
  const double vtksize = static_cast<double>(fs::file_size("bench_warp.vtk"));
  const double modelsize = static_cast<double>(fs::file_size("bench_warp_color/3D/3dmodel.model"));
  const double zipsize = static_cast<double>(fs::file_size("bench_warp_color.3mf"));
  const double tmembers = tpackage - tzip;
  std::fprintf(stderr, "text report:     %7.3f s  %8.1f MB  %7.1f MB/s\n", ttext, textsize / mb, textsize / mb / ttext);
  std::fprintf(stderr, "VTK (binary):    %7.3f s  %8.1f MB  %7.1f MB/s\n", tvtk, vtksize / mb, vtksize / mb / tvtk);
  std::fprintf(stderr, "3MF package:     %7.3f s  (model %.1f MB, zip %.1f MB)\n", tpackage, modelsize / mb, zipsize / mb);
  std::fprintf(stderr, "  zip alone:     %7.3f s  (%.0f %% of the package step, status %d)\n", tzip, 100.0 * tzip / tpackage, zipstatus);
  std::fprintf(stderr, "  zip CPU time:  %7.3f s  (deflate at %.1f MB/s of input)\n", czip, modelsize / mb / czip);
  std::fprintf(stderr, "  members:       %7.3f s  model formatted and written at %.1f MB/s\n", tmembers, modelsize / mb / tmembers);

  // Formatting alone: the model member of a second package goes to /dev/null through a link.
  fs::create_directories("null_color/3D");
  fs::create_symlink("/dev/null", "null_color/3D/3dmodel.model");
  std::vector<float> disp(3 * static_cast<size_t>(rs.nvrt));
  for (size_t k = 0; k < disp.size(); ++k) disp[k] = static_cast<float>(rs.stlvrt[k] - rs.prewarpvertices[k]);
  rs.outstlpath = "null_color";
  t0 = std::chrono::steady_clock::now();
  wf::write3mf(rs, disp);
  const double tformat = seconds(t0);
  std::fprintf(stderr, "model formatting alone (to /dev/null): %.3f s, %.1f MB/s\n", tformat, modelsize / mb / tformat);

  fs::current_path(old);
  fs::remove_all(dir);
  return 0;
}

// SPDX-License-Identifier: GPL-2.0-or-later
// Shared pieces of the output tests: a small warped surface built by hand, a folder change for
// the length of a test, the signal stream in a temporary file, and a few file helpers.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "control/runstate.h"
#include "testutil.h"

namespace wfo {

// Runs the test body inside a fresh temporary folder.
struct InTempDir {
  std::filesystem::path old;
  std::string dir;
  explicit InTempDir(const std::string &tag) : old(std::filesystem::current_path()) {
    dir = wft::tempdir(tag);
    std::filesystem::current_path(dir);
  }
  ~InTempDir() { std::filesystem::current_path(old); }
};

// A tetrahedron with corners (0,0,0), (10,0,0), (0,10,0), (0,0,10), moved by
// (0,0,0), (1,0,0), (0,2,0), (0,0,4): displacement magnitudes 0, 1, 2, 4.
inline void tetra(wf::RunState &rs) {
  rs.nvrt = 4;
  rs.prewarpvertices = {0, 0, 0, 10, 0, 0, 0, 10, 0, 0, 0, 10};
  rs.stlvrt = {0, 0, 0, 11, 0, 0, 0, 12, 0, 0, 0, 14};
  rs.ntri = 4;
  rs.stltri = {1, 3, 2, 1, 2, 4, 1, 4, 3, 2, 3, 4};
}

// A regular grid of nx by ny vertices in the plane z = 0 with two triangles per cell; the
// displacement of vertex (i, j) is (0.001 i, -0.002 j, 0.5).
inline void grid(wf::RunState &rs, int nx, int ny) {
  rs.nvrt = nx * ny;
  rs.prewarpvertices.resize(3 * static_cast<size_t>(rs.nvrt));
  rs.stlvrt.resize(3 * static_cast<size_t>(rs.nvrt));
  for (int j = 0; j < ny; ++j)
    for (int i = 0; i < nx; ++i) {
      size_t v = static_cast<size_t>(j * nx + i);
      double p[3] = {0.5 * i, 0.25 * j, 0.0};
      double d[3] = {0.001 * i, -0.002 * j, 0.5};
      for (int k = 0; k < 3; ++k) {
        rs.prewarpvertices[3 * v + k] = p[k];
        rs.stlvrt[3 * v + k] = p[k] + d[k];
      }
    }
  rs.ntri = 2 * (nx - 1) * (ny - 1);
  rs.stltri.clear();
  for (int j = 0; j + 1 < ny; ++j)
    for (int i = 0; i + 1 < nx; ++i) {
      int a = j * nx + i + 1, b = a + 1, c = a + nx, d = c + 1;
      rs.stltri.insert(rs.stltri.end(), {a, b, d, a, d, c});
    }
}

// The signal stream in an anonymous temporary file; text() reads what was written.
struct Signals {
  wf::RunState &rs;
  explicit Signals(wf::RunState &r) : rs(r) { rs.signalunit = std::tmpfile(); }
  ~Signals() {
    if (rs.signalunit) std::fclose(rs.signalunit);
    rs.signalunit = nullptr;
  }
  std::string text() {
    std::fflush(rs.signalunit);
    std::string s;
    std::rewind(rs.signalunit);
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, rs.signalunit)) > 0) s.append(buf, n);
    std::fseek(rs.signalunit, 0, SEEK_END);
    return s;
  }
};

// A small catalogue, so that the variables of a coded message reach the signal line.
inline void catalogue(wf::RunState &rs) {
  rs.messagecatalogue = {{"errors", {{"31", "cannot open %1 (status %2)"}, {"200", "cannot write %1 (%2)"}}}};
  rs.catalogueok = true;
}

inline std::string finishedevent(const std::string &name) {
  return "{\"information\": {\"finished writing file\": \"" + name + "\"}}";
}

// Output of a shell command, and whether it ended with status 0.
inline std::string shell(const std::string &cmd, int *status = nullptr) {
  std::string out;
  std::FILE *p = popen((cmd + " 2>&1").c_str(), "r");
  if (!p) return out;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  int rc = pclose(p);
  if (status) *status = rc;
  return out;
}

// A binary STL of the given triangles (9 floats each), normals zero.
inline void writebinarystl(const std::string &path, const std::vector<float> &corners) {
  std::string s(80, ' ');
  uint32_t n = static_cast<uint32_t>(corners.size() / 9);
  s.append(reinterpret_cast<const char *>(&n), 4);
  for (uint32_t t = 0; t < n; ++t) {
    float rec[12] = {0, 0, 0};
    for (int k = 0; k < 9; ++k) rec[3 + k] = corners[9 * t + k];
    s.append(reinterpret_cast<const char *>(rec), sizeof rec);
    s.append(2, '\0');
  }
  wft::writefile(path, s);
}

}  // namespace wfo

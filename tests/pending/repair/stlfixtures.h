// SPDX-License-Identifier: GPL-2.0-or-later
// Small surfaces made in code for the repair and recheck tests, their STL bytes, the admesh
// command's verdict on a file, and a fixture working in a fresh folder with a signal file.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "control/messages.h"
#include "control/runstate.h"
#include "testutil.h"

namespace wft {

struct Tri {
  std::array<float, 9> c;  // corner 1 x, y, z, corner 2, corner 3
};
using Mesh = std::vector<Tri>;

// Axis-aligned box, outward facing, 12 triangles: bottom, top, then the sides.
inline Mesh box(float x0, float y0, float z0, float sx, float sy, float sz) {
  const int f[12][3] = {{0, 3, 1}, {0, 2, 3}, {4, 5, 7}, {4, 7, 6}, {0, 1, 5}, {0, 5, 4},
                        {1, 3, 7}, {1, 7, 5}, {3, 2, 6}, {3, 6, 7}, {2, 0, 4}, {2, 4, 6}};
  const float o[3] = {x0, y0, z0}, s[3] = {sx, sy, sz};
  Mesh m(12);
  for (int i = 0; i < 12; ++i)
    for (int j = 0; j < 9; ++j)  // corner bits: 1 is +sx, 2 is +sy, 4 is +sz
      m[i].c[j] = o[j % 3] + (f[i][j / 3] >> (j % 3) & 1) * s[j % 3];
  return m;
}
inline Mesh cube() { return box(0, 0, 0, 10, 10, 10); }
// m after edit(m), for tables of faulty variants.
template <class F>
Mesh edited(Mesh m, F edit) {
  edit(m);
  return m;
}
inline Mesh join(Mesh a, const Mesh &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
inline Mesh opencube() {
  return edited(cube(), [](Mesh &m) { m.pop_back(); });
}
inline void flip(Tri &t) {
  for (int d = 0; d < 3; ++d) std::swap(t.c[3 + d], t.c[6 + d]);
}

// A Moebius strip of n quads (2n triangles): open, and no direction of its facets agrees
// across every edge.
inline Mesh mobius(int n = 12) {
  auto at = [&](int i, int side, int d) {
    double a = 2 * M_PI * (i % n) / n, w = (side ^ (i == n)) ? 3.0 : -3.0;
    double r = 20 + w * std::cos(a / 2);
    return float(d == 0 ? r * std::cos(a) : d == 1 ? r * std::sin(a) : w * std::sin(a / 2));
  };
  Mesh m(2 * size_t(n));
  for (int i = 0; i < n; ++i)
    for (int d = 0; d < 3; ++d) {
      const float a0 = at(i, 0, d), a1 = at(i, 1, d), b0 = at(i + 1, 0, d), b1 = at(i + 1, 1, d);
      auto &s = m[2 * size_t(i)].c, &t = m[2 * size_t(i) + 1].c;
      s[d] = a0, s[3 + d] = b0, s[6 + d] = b1;  // quad a0 b0 b1 a1
      t[d] = a0, t[3 + d] = b1, t[6 + d] = a1;
    }
  return m;
}

// Binary STL bytes: 84 + 50 n, normals left zero (no reader here uses them).
inline std::string stlbytes(const Mesh &m, bool bigendian = false) {
  std::string s = "test surface";
  s.resize(80, ' ');
  auto put = [&](const void *p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    for (int k = 0; k < 4; ++k) s.push_back(char(w >> (bigendian ? 24 - 8 * k : 8 * k)));
  };
  const uint32_t n = uint32_t(m.size());
  put(&n);
  for (const Tri &t : m) {
    s.append(12, '\0');
    for (const float &x : t.c) put(&x);
    s.append(2, '\0');
  }
  return s;
}
inline void writebinary(const std::string &path, const Mesh &m) { writefile(path, stlbytes(m)); }

inline std::string asciibytes(const Mesh &m) {
  std::string s = "solid test\n";
  for (const Tri &t : m) {
    s += "  facet normal 0 0 0\n    outer loop\n";
    for (int k = 0; k < 9; ++k)
      s += (k % 3 ? " " : "      vertex ") + std::to_string(t.c[k]) + (k % 3 == 2 ? "\n" : "");
    s += "    endloop\n  endfacet\n";
  }
  return s + "endsolid test\n";
}

// The facets of a little-endian binary STL (as many as its length holds).
inline Mesh readbinary(const std::string &path) {
  const std::string s = readfile(path);
  Mesh m(s.size() >= 84 ? (s.size() - 84) / 50 : 0);
  for (size_t i = 0; i < m.size(); ++i) std::memcpy(m[i].c.data(), &s[84 + 50 * i + 12], 36);
  return m;
}

inline double volume(const Mesh &m) {
  double v = 0;
  for (const Tri &t : m) {
    const auto &c = t.c;
    v += c[0] * (double(c[4]) * c[8] - double(c[5]) * c[7]) +
         c[1] * (double(c[5]) * c[6] - double(c[3]) * c[8]) +
         c[2] * (double(c[3]) * c[7] - double(c[4]) * c[6]);
  }
  return v / 6;
}

// "" when the admesh command's exact check finds the file closed and oriented (facets, none
// disconnected or degenerate, no backwards edge); otherwise the counts it gave.
inline std::string admeshfaults(const std::string &path) {
  static const char *const keys[] = {"Number of facets", "Total disconnected facets",
                                     "Degenerate facets", "Backwards edges"};
  int v[4] = {-1, -1, -1, -1};
  std::FILE *p = popen(("admesh --exact '" + path + "' 2>&1").c_str(), "r");
  char line[512];
  while (p && std::fgets(line, sizeof line, p))
    for (int k = 0; k < 4; ++k)
      if (std::strncmp(line, keys[k], std::strlen(keys[k])) == 0 && std::strchr(line, ':'))
        v[k] = std::atoi(std::strchr(line, ':') + 1);
  if (p) pclose(p);
  if (v[0] > 0 && v[1] == 0 && v[2] == 0 && v[3] == 0) return "";
  return "facets " + std::to_string(v[0]) + " disconnected " + std::to_string(v[1]) +
         " degenerate " + std::to_string(v[2]) + " backwards " + std::to_string(v[3]);
}

// A run record working in a fresh folder (the current one), with a signal file and catalogue.
struct InFolderTest : ::testing::Test {
  wf::RunState rs;
  std::string dir;
  std::filesystem::path old = std::filesystem::current_path();
  void SetUp() override {
    dir = tempdir("repair");
    std::filesystem::current_path(dir);
    rs.signalunit = std::tmpfile();
    rs.messagecatalogue =
        nlohmann::json::parse(readfile(std::string(WARPFORGE_SOURCE_DIR) + "/data/simsolver.arb"));
    rs.catalogueok = true;
  }
  void TearDown() override {
    std::fclose(rs.signalunit);
    std::filesystem::current_path(old);
  }
  std::string signals() {  // read through a fresh opening, so the unit's own position stays
    std::fflush(rs.signalunit);
    return readfile("/proc/self/fd/" + std::to_string(fileno(rs.signalunit)));
  }
  // The console text of f(); an exception passes through with the text dropped.
  template <class F>
  std::string console(F f) {
    ::testing::internal::CaptureStdout();
    try {
      f();
    } catch (...) {
      ::testing::internal::GetCapturedStdout();
      throw;
    }
    return ::testing::internal::GetCapturedStdout();
  }
  void setlist(const std::vector<std::string> &files, const std::vector<int32_t> &types,
               const std::vector<int32_t> &watertight) {
    rs.stlfiles.v = files;
    rs.stlfiles.n = int32_t(files.size());
    rs.stltype.v = types;
    rs.stltype.n = int32_t(types.size());
    rs.surfwatertight = watertight;
  }
};

}  // namespace wft

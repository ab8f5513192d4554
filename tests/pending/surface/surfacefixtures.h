// SPDX-License-Identifier: GPL-2.0-or-later
// What the surface tests share: meshes made in code, hand-written STL files in either byte
// order, and a capture of the console around one step.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <numeric>
#include <random>

#include "control/messages.h"
#include "control/runstate.h"
#include "control/textio.h"
#include "surface/normals.h"
#include "surface/readstl.h"
#include "surface/sortkit.h"
#include "surface/surfacemesh.h"
#include "surface/writestl.h"
#include "testutil.h"

namespace wft {

using I = std::vector<int32_t>;
using V = std::vector<double>;
using Lines = std::vector<std::string>;

// A triangle soup: nine coordinates per triangle (corner 1 x, y, z, corner 2, corner 3).
using Soup = V;

// Closed tetrahedron on the axes, outward by the right-hand rule.
inline Soup tetrahedron(double scale = 1.0) {
  Soup s = {0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1,
            0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
  for (double &x : s) x *= scale;
  return s;
}

// Closed axis-aligned cube of edge size at (x0, y0, z0): 12 outward triangles.
inline Soup cube(double size = 1.0, double x0 = 0, double y0 = 0, double z0 = 0) {
  // Each face as four corners (bits x, y, z), counter-clockwise seen from outside.
  const int faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                           {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  const double o[3] = {x0, y0, z0};
  Soup s;
  for (const auto &f : faces)
    for (int m : {0, 1, 2, 0, 2, 3})
      for (int k = 0; k < 3; ++k) s.push_back(o[k] + ((f[m] >> k) & 1) * size);
  return s;
}

// n such cubes of edge 1/3 in a row along x, 1/3 apart, at coordinates that are no doubles.
inline Soup cubes(int n) {
  Soup s;
  for (int i = 0; i < n; ++i) {
    Soup c = cube(1.0 / 3.0, 0.1 + i * 2.0 / 3.0, -2.0, 1e3);
    s.insert(s.end(), c.begin(), c.end());
  }
  return s;
}

// A binary STL written by hand: 80 header bytes, the count (countoverride when >= 0), 50-byte
// records with a normal of ones and attribute 7, extra bytes at the end.
inline std::string binarystl(const Soup &s, bool bigendian = false, const std::string &header = "h",
                             long long countoverride = -1, const std::string &extra = "") {
  std::string out = header;
  out.resize(80, ' ');
  auto put32 = [&](uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>(v >> (bigendian ? 24 - 8 * i : 8 * i)));
  };
  put32(static_cast<uint32_t>(countoverride >= 0 ? countoverride : static_cast<long long>(s.size() / 9)));
  for (size_t t = 0; t < s.size() / 9; ++t) {
    for (int k = 0; k < 3; ++k) put32(0x3F800000u);
    for (int k = 0; k < 9; ++k) put32(std::bit_cast<uint32_t>(static_cast<float>(s[9 * t + k])));
    out += std::string("\x07\x00", 2);
  }
  return out + extra;
}

// An ASCII STL with full-precision coordinates.
inline std::string asciistl(const Soup &s, const std::string &name = "part") {
  std::string out = "solid " + name + "\n";
  char buf[128];
  for (size_t c = 0; c < s.size() / 3; ++c) {
    if (c % 3 == 0) out += "  facet normal 0 0 1\n    outer loop\n";
    std::snprintf(buf, sizeof buf, "      vertex %.17g %.17g %.17g\n", s[3 * c], s[3 * c + 1], s[3 * c + 2]);
    out += buf;
    if (c % 3 == 2) out += "    endloop\n  endfacet\n";
  }
  return out + "endsolid " + name + "\n";
}

// Runs f with stdout captured and returns the output. An abort of the run is reported in
// aborted when given, and is a failure otherwise.
template <class F>
std::string captured(F f, bool *aborted = nullptr) {
  testing::internal::CaptureStdout();
  bool stopped = false;
  try {
    f();
  } catch (const wf::RunAborted &) {
    stopped = true;
  }
  std::string out = testing::internal::GetCapturedStdout();
  if (aborted) *aborted = stopped;
  EXPECT_TRUE(aborted || !stopped) << out;
  return out;
}

inline bool hasline(const std::string &out, const std::string &line) {
  for (const auto &l : splitlines(out))
    if (l == line) return true;
  return false;
}

}  // namespace wft

// SPDX-License-Identifier: GPL-3.0-or-later
// Surfaces made in code for the surface tests: closed solids as triangle soups, and STL files
// written by hand in either byte order or as text.
#pragma once

#include <bit>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace wft {

// A triangle soup: nine coordinates per triangle (corner 1 x, y, z, corner 2, corner 3).
using Soup = std::vector<double>;

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

}  // namespace wft

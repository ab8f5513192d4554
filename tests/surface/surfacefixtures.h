// SPDX-License-Identifier: GPL-2.0-or-later
// Test meshes made in code, hand-written STL files in every byte order, and a run state ready
// for one surface.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "control/messages.h"
#include "control/runstate.h"
#include "testutil.h"

namespace wft {

// A triangle soup: nine coordinates per triangle (corner 1 x, y, z, corner 2, corner 3).
using Soup = std::vector<double>;

inline void addtri(Soup &s, const double *a, const double *b, const double *c) {
  s.insert(s.end(), a, a + 3);
  s.insert(s.end(), b, b + 3);
  s.insert(s.end(), c, c + 3);
}

// Closed tetrahedron with outward normals by the right-hand rule.
inline Soup tetrahedron(double scale = 1.0) {
  double a[3] = {0, 0, 0}, b[3] = {scale, 0, 0}, c[3] = {0, scale, 0}, d[3] = {0, 0, scale};
  Soup s;
  addtri(s, a, c, b);
  addtri(s, a, b, d);
  addtri(s, a, d, c);
  addtri(s, b, c, d);
  return s;
}

// Closed axis-aligned cube [0, size]^3 from 12 outward triangles.
inline Soup cube(double size = 1.0, double x0 = 0, double y0 = 0, double z0 = 0) {
  auto p = [&](int i, int j, int k, double *out) {
    out[0] = x0 + i * size;
    out[1] = y0 + j * size;
    out[2] = z0 + k * size;
  };
  // Each face as four corner index triples in counter-clockwise order seen from outside.
  const int faces[6][4][3] = {
      {{0, 0, 0}, {0, 1, 0}, {1, 1, 0}, {1, 0, 0}},  // z = 0
      {{0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}},  // z = 1
      {{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {0, 0, 1}},  // y = 0
      {{0, 1, 0}, {0, 1, 1}, {1, 1, 1}, {1, 1, 0}},  // y = 1
      {{0, 0, 0}, {0, 0, 1}, {0, 1, 1}, {0, 1, 0}},  // x = 0
      {{1, 0, 0}, {1, 1, 0}, {1, 1, 1}, {1, 0, 1}},  // x = 1
  };
  Soup s;
  for (auto &f : faces) {
    double q[4][3];
    for (int m = 0; m < 4; ++m) p(f[m][0], f[m][1], f[m][2], q[m]);
    addtri(s, q[0], q[1], q[2]);
    addtri(s, q[0], q[2], q[3]);
  }
  return s;
}

// Closed UV sphere: nlat bands, nlon sectors, poles as single vertices; outward.
inline Soup sphere(int nlat, int nlon, double r = 10.0) {
  const double pi = 3.14159265358979323846;
  auto pt = [&](int i, int j, double *out) {
    if (i == 0) { out[0] = 0; out[1] = 0; out[2] = r; return; }
    if (i == nlat) { out[0] = 0; out[1] = 0; out[2] = -r; return; }
    double th = pi * i / nlat, ph = 2 * pi * (j % nlon) / nlon;
    out[0] = r * std::sin(th) * std::cos(ph);
    out[1] = r * std::sin(th) * std::sin(ph);
    out[2] = r * std::cos(th);
  };
  Soup s;
  for (int i = 0; i < nlat; ++i) {
    for (int j = 0; j < nlon; ++j) {
      double a[3], b[3], c[3], d[3];
      pt(i, j, a);
      pt(i + 1, j, b);
      pt(i + 1, j + 1, c);
      pt(i, j + 1, d);
      if (i != nlat - 1) addtri(s, a, b, c);
      if (i != 0) addtri(s, a, c, d);
    }
  }
  return s;
}

inline std::vector<float> tofloats(const Soup &s) {
  std::vector<float> f(s.size());
  for (size_t i = 0; i < s.size(); ++i) f[i] = static_cast<float>(s[i]);
  return f;
}

// A binary STL written by hand: 80 header bytes, the count, 50-byte records, in little- or
// big-endian order. countoverride replaces the count; extra bytes are appended at the end.
inline std::string binarystl(const Soup &s, bool bigendian = false,
                             const std::string &header = "test header",
                             long long countoverride = -1, const std::string &extra = "") {
  std::string out = header;
  out.resize(80, ' ');
  uint32_t n = countoverride >= 0 ? static_cast<uint32_t>(countoverride)
                                  : static_cast<uint32_t>(s.size() / 9);
  auto put32 = [&](uint32_t v) {
    unsigned char b[4];
    for (int i = 0; i < 4; ++i) {
      int sh = bigendian ? 8 * (3 - i) : 8 * i;
      b[i] = static_cast<unsigned char>((v >> sh) & 0xFF);
    }
    out.append(reinterpret_cast<char *>(b), 4);
  };
  put32(n);
  for (size_t t = 0; t < s.size() / 9; ++t) {
    for (int k = 0; k < 3; ++k) put32(0x3F800000u);  // a normal of ones, which is ignored
    for (int k = 0; k < 9; ++k) put32(std::bit_cast<uint32_t>(static_cast<float>(s[9 * t + k])));
    out.push_back('\x07');
    out.push_back('\x00');
  }
  return out + extra;
}

// An ASCII STL with full-precision text coordinates.
inline std::string asciistl(const Soup &s, const std::string &name = "part") {
  std::string out = "solid " + name + "\n";
  char buf[128];
  for (size_t t = 0; t < s.size() / 9; ++t) {
    out += "  facet normal 0 0 1\n    outer loop\n";
    for (int c = 0; c < 3; ++c) {
      std::snprintf(buf, sizeof buf, "      vertex %.17g %.17g %.17g\n", s[9 * t + 3 * c],
                    s[9 * t + 3 * c + 1], s[9 * t + 3 * c + 2]);
      out += buf;
    }
    out += "    endloop\n  endfacet\n";
  }
  return out + "endsolid " + name + "\n";
}

// A run state for one surface of the job, named path.
inline void onesurface(wf::RunState &rs, const std::string &path) {
  rs.stlfiles.v = {path};
  rs.stlfiles.n = 1;
  rs.curstlid = 1;
  rs.stlpath = path;
}

// The soup as if just read: rawvrt, counts and the box.
inline void setsoup(wf::RunState &rs, const Soup &s) {
  rs.rawvrt = s;
  rs.nrawvrt = static_cast<int32_t>(s.size() / 3);
  rs.ntri = static_cast<int32_t>(s.size() / 9);
  for (int k = 0; k < 3; ++k) {
    double mn = s[k], mx = s[k];
    for (size_t j = 0; j < s.size() / 3; ++j) {
      mn = std::min(mn, s[3 * j + k]);
      mx = std::max(mx, s[3 * j + k]);
    }
    rs.stlbbox.min[k] = mn;
    rs.stlbbox.max[k] = mx;
    rs.stlbbox.size[k] = mx - mn;
    rs.stlbbox.centre[k] = 0.5 * (mn + mx);
  }
}

// The corners of triangle t (0-based) of the merged mesh, as a soup entry.
inline void meshcorner(const wf::RunState &rs, size_t t, int c, double *out) {
  int32_t v = rs.stltri[3 * t + static_cast<size_t>(c)];
  for (int k = 0; k < 3; ++k) out[k] = rs.stlvrt[3 * static_cast<size_t>(v - 1) + k];
}

// Runs f with stdout captured and returns what it printed. With aborted given, an abort of
// the run is caught and reported there; otherwise it passes on.
template <class F>
std::string captured(F f, bool *aborted = nullptr) {
  testing::internal::CaptureStdout();
  if (aborted) *aborted = false;
  try {
    f();
  } catch (const wf::RunAborted &) {
    std::string out = testing::internal::GetCapturedStdout();
    if (!aborted) throw;
    *aborted = true;
    return out;
  }
  return testing::internal::GetCapturedStdout();
}

// Whether output holds the line exactly.
inline bool hasline(const std::string &out, const std::string &line) {
  for (const auto &l : splitlines(out))
    if (l == line) return true;
  return false;
}

}  // namespace wft

// SPDX-License-Identifier: GPL-2.0-or-later
// Small surfaces made in code for the repair and recheck tests, STL writers and readers for
// them, the summary of the admesh command on a file, and a scope that changes the folder.
#pragma once

#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace wft {

struct Tri {
  std::array<float, 9> c;  // corner 1 x, y, z, corner 2, corner 3
};
using Mesh = std::vector<Tri>;

// Axis-aligned box, outward facing, 12 triangles.
inline Mesh box(float x0, float y0, float z0, float sx, float sy, float sz) {
  const float p[8][3] = {{x0, y0, z0},           {x0 + sx, y0, z0},      {x0 + sx, y0 + sy, z0},
                         {x0, y0 + sy, z0},      {x0, y0, z0 + sz},      {x0 + sx, y0, z0 + sz},
                         {x0 + sx, y0 + sy, z0 + sz}, {x0, y0 + sy, z0 + sz}};
  const int f[12][3] = {{0, 2, 1}, {0, 3, 2}, {4, 5, 6}, {4, 6, 7}, {0, 1, 5}, {0, 5, 4},
                        {1, 2, 6}, {1, 6, 5}, {2, 3, 7}, {2, 7, 6}, {3, 0, 4}, {3, 4, 7}};
  Mesh m;
  for (const auto &t : f) {
    Tri tri;
    for (int k = 0; k < 3; ++k)
      for (int d = 0; d < 3; ++d) tri.c[3 * k + d] = p[t[k]][d];
    m.push_back(tri);
  }
  return m;
}
inline Mesh cube(float size = 10.0f) { return box(0, 0, 0, size, size, size); }

// A Moebius strip of n quads (2n triangles): open, and no direction of its facets agrees
// across every edge.
inline Mesh mobius(int n = 12) {
  auto at = [&](int i, int side) {
    double a = 2 * M_PI * i / n, w = side ? 3.0 : -3.0, tw = a / 2;
    return std::array<float, 3>{float((20 + w * std::cos(tw)) * std::cos(a)),
                                float((20 + w * std::cos(tw)) * std::sin(a)),
                                float(w * std::sin(tw))};
  };
  Mesh m;
  auto add = [&](std::array<float, 3> a, std::array<float, 3> b, std::array<float, 3> c) {
    Tri t;
    for (int d = 0; d < 3; ++d) {
      t.c[d] = a[d];
      t.c[3 + d] = b[d];
      t.c[6 + d] = c[d];
    }
    m.push_back(t);
  };
  for (int i = 0; i < n; ++i) {
    int j = (i + 1) % n;
    auto a0 = at(i, 0), a1 = at(i, 1);
    auto b0 = j == 0 ? at(0, 1) : at(j, 0);
    auto b1 = j == 0 ? at(0, 0) : at(j, 1);
    add(a0, b0, b1);
    add(a0, b1, a1);
  }
  return m;
}

inline void flip(Tri &t) {
  for (int d = 0; d < 3; ++d) std::swap(t.c[3 + d], t.c[6 + d]);
}

inline void putword(std::string &s, uint32_t w, bool bigendian) {
  for (int k = 0; k < 4; ++k) {
    int shift = bigendian ? 8 * (3 - k) : 8 * k;
    s.push_back(char((w >> shift) & 0xff));
  }
}

// Binary STL: 84 + 50 n bytes (plus `trailing` extra bytes), normals from the corner order.
inline void writebinary(const std::string &path, const Mesh &m, bool bigendian = false,
                        int trailing = 0) {
  std::string s(80, ' ');
  std::memcpy(&s[0], "test surface", 12);
  putword(s, uint32_t(m.size()), bigendian);
  for (const Tri &t : m) {
    const float *c = t.c.data();
    float u[3] = {c[3] - c[0], c[4] - c[1], c[5] - c[2]};
    float v[3] = {c[6] - c[0], c[7] - c[1], c[8] - c[2]};
    float n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
    float len = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    for (float x : n) {
      float y = len > 0 ? x / len : 0.0f;
      uint32_t w;
      std::memcpy(&w, &y, 4);
      putword(s, w, bigendian);
    }
    for (float x : t.c) {
      uint32_t w;
      std::memcpy(&w, &x, 4);
      putword(s, w, bigendian);
    }
    s.append(2, '\0');
  }
  s.append(size_t(trailing), '\0');
  std::ofstream(path, std::ios::binary) << s;
}

inline void writeascii(const std::string &path, const Mesh &m) {
  std::ostringstream o;
  o.precision(9);
  o << "solid test\n";
  for (const Tri &t : m) {
    o << "  facet normal 0 0 0\n    outer loop\n";
    for (int k = 0; k < 3; ++k)
      o << "      vertex " << t.c[3 * k] << " " << t.c[3 * k + 1] << " " << t.c[3 * k + 2] << "\n";
    o << "    endloop\n  endfacet\n";
  }
  o << "endsolid test\n";
  std::ofstream(path, std::ios::binary) << o.str();
}

// A little-endian binary STL read back (no checks beyond the length).
inline Mesh readbinary(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  std::string s((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  if (s.size() < 84) throw std::runtime_error("short STL " + path);
  uint32_t n;
  std::memcpy(&n, &s[80], 4);
  if (s.size() < 84 + 50 * size_t(n)) throw std::runtime_error("truncated STL " + path);
  Mesh m(n);
  for (uint32_t i = 0; i < n; ++i) std::memcpy(m[i].c.data(), &s[84 + 50 * i + 12], 36);
  return m;
}

inline double volume(const Mesh &m) {
  double v = 0;
  for (const Tri &t : m) {
    const float *a = &t.c[0], *b = &t.c[3], *c = &t.c[6];
    v += double(a[0]) * (double(b[1]) * c[2] - double(b[2]) * c[1]) +
         double(a[1]) * (double(b[2]) * c[0] - double(b[0]) * c[2]) +
         double(a[2]) * (double(b[0]) * c[1] - double(b[1]) * c[0]);
  }
  return v / 6;
}

// The admesh command's exact check of a file: original facet count, disconnected facets,
// degenerate facets and backwards edges.
struct AdmeshSummary {
  int facets = -1, disconnected = -1, degenerate = -1, backwards = -1;
  bool sound() const {
    return facets > 0 && disconnected == 0 && degenerate == 0 && backwards == 0;
  }
};
inline AdmeshSummary admeshcheck(const std::string &path) {
  AdmeshSummary s;
  std::string cmd = "admesh --exact '" + path + "' 2>&1";
  std::FILE *p = popen(cmd.c_str(), "r");
  if (!p) return s;
  char line[512];
  auto number = [](const char *l) {
    const char *c = std::strchr(l, ':');
    return c ? std::atoi(c + 1) : -1;
  };
  while (std::fgets(line, sizeof line, p)) {
    if (std::strncmp(line, "Number of facets", 16) == 0) s.facets = number(line);
    if (std::strncmp(line, "Total disconnected facets", 25) == 0) s.disconnected = number(line);
    if (std::strncmp(line, "Degenerate facets", 17) == 0) s.degenerate = number(line);
    if (std::strncmp(line, "Backwards edges", 15) == 0) s.backwards = number(line);
  }
  pclose(p);
  return s;
}

// Changes the current folder for the life of the scope.
struct InFolder {
  std::filesystem::path old;
  explicit InFolder(const std::string &folder) : old(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
  }
  ~InFolder() { std::filesystem::current_path(old); }
  InFolder(const InFolder &) = delete;
  InFolder &operator=(const InFolder &) = delete;
};

}  // namespace wft

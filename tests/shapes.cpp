// SPDX-License-Identifier: GPL-3.0-or-later
#include "shapes.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <random>

#include "testutil.h"

namespace wft {

namespace {

using Corner = std::array<float, 3>;

Corner corner(const Facets &s, size_t t, int k) {
  return {s[9 * t + 3 * size_t(k)], s[9 * t + 3 * size_t(k) + 1], s[9 * t + 3 * size_t(k) + 2]};
}

void push(Facets &s, const Corner &a, const Corner &b, const Corner &c) {
  s.insert(s.end(), a.begin(), a.end());
  s.insert(s.end(), b.begin(), b.end());
  s.insert(s.end(), c.begin(), c.end());
}

// The cross product of the sides of the facet at p: outwards, twice its area long.
std::array<double, 3> crossof(const float *p) {
  const double u[3] = {double(p[3]) - p[0], double(p[4]) - p[1], double(p[5]) - p[2]};
  const double v[3] = {double(p[6]) - p[0], double(p[7]) - p[1], double(p[8]) - p[2]};
  return {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
}

double length(const std::array<double, 3> &c) { return std::sqrt(c[0] * c[0] + c[1] * c[1] + c[2] * c[2]); }

// The facet other than t that shares an edge with it, the first in file order.
size_t neighbour(const Facets &s, size_t t) {
  for (size_t u = 0; u < s.size() / 9; ++u) {
    if (u == t) continue;
    int shared = 0;
    for (int i = 0; i < 3; ++i)
      for (int j = 0; j < 3; ++j) shared += corner(s, t, i) == corner(s, u, j);
    if (shared == 2) return u;
  }
  return t;
}

}  // namespace

Soup tetrahedron(double scale) {
  Soup s = {0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1};
  for (double &x : s) x *= scale;
  return s;
}

Soup cube(double size, double x0, double y0, double z0) {
  const Facets f = boxpart(float(x0), float(y0), float(z0), float(size), float(size), float(size), 1);
  return Soup(f.begin(), f.end());
}

Soup cubeandsheet(double L, int n, bool sheet) {
  using P3 = std::array<double, 3>;
  const P3 faces[7][3] = {{{0, 0, 0}, {0, L, 0}, {L, 0, 0}},          {{0, 0, L}, {L, 0, 0}, {0, L, 0}},
                          {{0, 0, 0}, {L, 0, 0}, {0, 0, L}},          {{0, L, 0}, {0, 0, L}, {L, 0, 0}},
                          {{0, 0, 0}, {0, 0, L}, {0, L, 0}},          {{L, 0, 0}, {0, L, 0}, {0, 0, L}},
                          {{2 * L, 0, 0.3 * L}, {L, 0, 0}, {0, L, 0}}};
  Soup s;
  auto put = [&](const P3 *f, int i, int j) {
    for (size_t a = 0; a < 3; ++a) s.push_back(f[0][a] + (double(i) / n) * f[1][a] + (double(j) / n) * f[2][a]);
  };
  for (const auto &f : faces) {
    if (!sheet && &f == &faces[6]) break;
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) {
        put(f, i, j), put(f, i + 1, j), put(f, i + 1, j + 1);
        put(f, i, j), put(f, i + 1, j + 1), put(f, i, j + 1);
      }
  }
  return s;
}

wf::RawSurface rawof(const Soup &s) {
  const int32_t nvrt = static_cast<int32_t>(s.size() / 3);
  return {.vrt = s, .nvrt = nvrt, .ntri = nvrt / 3, .box = wf::boundingbox(s.data(), s.size() / 3)};
}

wf::PreparedSurface preparedof(const Soup &s, const wf::Tolerances &rules) {
  wf::RawSurface raw = rawof(s);
  return wf::preparemesh(raw, rules);
}

std::string binarystl(const Soup &s, bool bigendian, const std::string &header, long long countoverride,
                      const std::string &extra) {
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

std::string binarystlbytes(const std::vector<float> &facets) {
  return binarystl(Soup(facets.begin(), facets.end()), false, "");
}

std::string asciistl(const Soup &s, const std::string &name) {
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

wf::SurfaceMesh movedtetra() {
  wf::SurfaceMesh m;
  m.nvrt = m.ntri = 4;
  m.prewarp = {0, 0, 0, 10, 0, 0, 0, 10, 0, 0, 0, 10};
  m.vrt = {0, 0, 0, 11, 0, 0, 0, 12, 0, 0, 0, 14};
  m.tri = {1, 3, 2, 1, 2, 4, 1, 4, 3, 2, 3, 4};
  return m;
}

Facets boxpart(float x0, float y0, float z0, float sx, float sy, float sz, int n) {
  // Each face: its origin corner (bits x, y, z) and two edge directions whose cross product
  // points outwards.
  struct Face {
    int o[3], u, v;
  };
  const Face faces[6] = {{{0, 0, 0}, 1, 0}, {{0, 0, 1}, 0, 1}, {{0, 0, 0}, 0, 2},
                         {{0, 1, 0}, 2, 0}, {{0, 0, 0}, 2, 1}, {{1, 0, 0}, 1, 2}};
  const float o[3] = {x0, y0, z0}, size[3] = {sx, sy, sz};
  Facets s;
  for (const Face &f : faces)
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) {
        auto at = [&](int a, int b) {
          Corner c;
          for (int k = 0; k < 3; ++k) {
            // Every corner from its lattice numbers alone, so shared corners are equal bits.
            int step = f.o[k] * n + (k == f.u ? a : 0) + (k == f.v ? b : 0);
            c[size_t(k)] = o[k] + size[k] * float(step) / float(n);
          }
          return c;
        };
        push(s, at(i, j), at(i + 1, j), at(i + 1, j + 1));
        push(s, at(i, j), at(i + 1, j + 1), at(i, j + 1));
      }
  return s;
}

Facets joined(Facets a, const Facets &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

Facets toruspart(float cx, float cy, float cz, float R, float r, int nu, int nv) {
  auto at = [&](int i, int j) {
    const double u = 2 * M_PI * (i % nu) / nu, v = 2 * M_PI * (j % nv) / nv;
    return Corner{float(cx + (R + r * std::cos(v)) * std::cos(u)), float(cy + (R + r * std::cos(v)) * std::sin(u)),
                  float(cz + r * std::sin(v))};
  };
  Facets s;
  for (int i = 0; i < nu; ++i)
    for (int j = 0; j < nv; ++j) {
      push(s, at(i, j), at(i + 1, j), at(i + 1, j + 1));
      push(s, at(i, j), at(i + 1, j + 1), at(i, j + 1));
    }
  return s;
}

double bridgevolume() { return 12.0 * 12 * 14 + 32.0 * 16 * 6 - 12.0 * 12 * 3; }

std::vector<NamedPart> repairparts(const std::string &fieldfolder) {
  // The bridge: pier [12, 24] x [4, 16] x [0, 14], deck [2, 34] x [2, 18] x [11, 17], overlapping
  // in [12, 24] x [4, 16] x [11, 14].
  return {{"cube", boxpart(0, 0, 0, 10, 10, 10, 1)},
          {"bracket", binarystlfacets(readfile(fieldfolder + "/part.stl"))},
          {"torus", toruspart(20, 10, 14, 12, 5, 16, 8)},
          {"bridge", joined(boxpart(12, 4, 0, 12, 12, 14, 2), boxpart(2, 2, 11, 32, 16, 6, 2))}};
}

Facets scatteredfacets(int n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(0, 50);
  Facets s;
  for (int t = 0; t < n; ++t) {
    const float x = u(rng), y = u(rng), z = u(rng);
    s.insert(s.end(), {x, y, z, x + 1, y, z, x, y + 1, z + 0.5f});
  }
  return s;
}

const char *damagename(Damage d) {
  static const char *const names[] = {"intact",
                                      "one facet removed",
                                      "two neighbouring facets removed",
                                      "a whole side removed",
                                      "a zero-area sliver added",
                                      "a fin added",
                                      "a reversed copy of every facet added"};
  return names[int(d)];
}

Facets damage(const Facets &part, Damage d, size_t at) {
  const size_t n = part.size() / 9;
  const size_t t = at % n;
  Facets s;
  switch (d) {
    case Damage::none: return part;
    case Damage::onefacet:
    case Damage::twofacets: {
      const size_t u = d == Damage::twofacets ? neighbour(part, t) : t;
      for (size_t k = 0; k < n; ++k)
        if (k != t && k != u) s.insert(s.end(), &part[9 * k], &part[9 * k + 9]);
      return s;
    }
    case Damage::side: {
      // Every facet that faces within 45 degrees of -y.
      for (size_t k = 0; k < n; ++k) {
        const std::array<double, 3> c = crossof(&part[9 * k]);
        if (!(c[1] < -std::sqrt(0.5) * length(c))) s.insert(s.end(), &part[9 * k], &part[9 * k + 9]);
      }
      return s;
    }
    case Damage::sliver:
    case Damage::fin: {
      s = part;
      const Corner a = corner(part, t, 0), b = corner(part, t, 1), c = corner(part, t, 2);
      Corner m;
      for (int k = 0; k < 3; ++k) m[size_t(k)] = 0.5f * (a[size_t(k)] + b[size_t(k)]);
      if (d == Damage::fin) {
        // Straight out of the facet, as far as a third of its edge a-b is long.
        double e1[3], e2[3];
        for (int k = 0; k < 3; ++k) e1[k] = b[size_t(k)] - a[size_t(k)], e2[k] = c[size_t(k)] - a[size_t(k)];
        double nrm[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
        const double len = std::sqrt(nrm[0] * nrm[0] + nrm[1] * nrm[1] + nrm[2] * nrm[2]);
        const double edge = std::sqrt(e1[0] * e1[0] + e1[1] * e1[1] + e1[2] * e1[2]);
        for (int k = 0; k < 3; ++k) m[size_t(k)] += float(nrm[k] / len * edge / 3);
      }
      push(s, b, a, m);
      return s;
    }
    case Damage::reversedcopy: {
      s = part;
      for (size_t k = 0; k < n; ++k) push(s, corner(part, k, 0), corner(part, k, 2), corner(part, k, 1));
      return s;
    }
  }
  return s;
}

double facetarea(const Facets &s) {
  double a = 0;
  for (size_t t = 0; t < s.size() / 9; ++t) a += 0.5 * length(crossof(&s[9 * t]));
  return a;
}

double signedvolume(const Facets &s) {
  double v = 0;
  for (size_t t = 0; t < s.size() / 9; ++t) {
    const float *p = &s[9 * t];
    const double a[3] = {p[0], p[1], p[2]}, b[3] = {p[3], p[4], p[5]}, c[3] = {p[6], p[7], p[8]};
    v +=
        (a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) + a[2] * (b[0] * c[1] - b[1] * c[0])) /
        6.0;
  }
  return v;
}

size_t overloadededges(const Facets &s) {
  std::map<std::array<float, 6>, int> count;
  for (size_t t = 0; t < s.size() / 9; ++t)
    for (int k = 0; k < 3; ++k) {
      Corner a = corner(s, t, k), b = corner(s, t, (k + 1) % 3);
      if (b < a) std::swap(a, b);
      ++count[{a[0], a[1], a[2], b[0], b[1], b[2]}];
    }
  size_t n = 0;
  for (const auto &[e, c] : count) n += c > 2;
  return n;
}

std::string samplefield(const std::string &tag) {
  const std::string dir = tempdir(tag);
  rungenjob(dir, {"--tris", "448"});
  return dir;
}

WarpRun warpsurface(const std::string &folder, const Facets &surface, const std::string &cards) {
  namespace fs = std::filesystem;
  for (const char *old : {"job_1_warp.stl", "job_1_warp_ls_repair.stl"}) fs::remove(folder + "/" + old);
  writefile(folder + "/part.stl", binarystlbytes(surface));
  writefile(folder + "/repair.deck", "*INPU\njob\n*IOFF\n-1\n*N3DM\n" + cards);
  const RunResult r = runwarpforge("repair.deck", folder);
  WarpRun w{r.status, r.out, binarystlfacets(readfile(folder + "/job_1_warp.stl"))};
  w.repairedwritten = fs::exists(folder + "/job_1_warp_ls_repair.stl");
  if (w.repairedwritten) w.repaired = binarystlfacets(readfile(folder + "/job_1_warp_ls_repair.stl"));
  return w;
}

const char *jobdamagename(JobDamage d) {
  static const char *const names[] = {"a vertex 3e10 mm away", "every vertex not a number", "triangle count 2^30",
                                      "triangle count -2^31", "*MAXR 268435456"};
  return names[int(d)];
}

std::string damagedjob(const std::string &folder, JobDamage d) {
  rungenjob(folder, {"--tris", "448"});
  std::string stl = readfile(folder + "/part.stl");
  const uint32_t n = uint32_t(stl.size() - 84) / 50;
  std::string deck = "*INPU\njob\n*IOFF\n-1\n*N3DM\n*TSRD\n*TSRE\n*MAXE\n5.0\n*MINE\n2.0\n";
  switch (d) {
    case JobDamage::farvertex: {
      const std::string old = stl.substr(84 + 50 * 10 + 12, 12);
      const float far[3] = {3e10f, 1e4f, 5.0f};
      for (uint32_t t = 0; t < n; ++t)
        for (size_t k = 0; k < 3; ++k)
          if (stl.compare(84 + 50 * size_t(t) + 12 + 12 * k, 12, old) == 0)
            stl.replace(84 + 50 * size_t(t) + 12 + 12 * k, 12, reinterpret_cast<const char *>(far), 12);
      break;
    }
    case JobDamage::nanvertices: {
      const float nan[9] = {NAN, NAN, NAN, NAN, NAN, NAN, NAN, NAN, NAN};
      for (uint32_t t = 0; t < n; ++t)
        stl.replace(84 + 50 * size_t(t) + 12, 36, reinterpret_cast<const char *>(nan), 36);
      break;
    }
    case JobDamage::count2e30:
    case JobDamage::countneg: {
      const uint32_t count = d == JobDamage::count2e30 ? (1u << 30) : 0x80000000u;
      stl.replace(80, 4, reinterpret_cast<const char *>(&count), 4);
      break;
    }
    case JobDamage::maxrefine:
      deck = "*INPU\njob\n*IOFF\n-1\n*N3DM\n*MAXR\n268435456\n*MAXE\n0.5\n*MINE\n0.01\n";
      break;
  }
  writefile(folder + "/part.stl", stl);
  writefile(folder + "/damaged.deck", deck);
  return "damaged.deck";
}

}  // namespace wft

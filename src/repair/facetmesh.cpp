// SPDX-License-Identifier: GPL-3.0-or-later
#include "repair/facetmesh.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numeric>

#include "repair/workers.h"

namespace wf {

namespace {

uint64_t mix(uint64_t x) {  // splitmix64 finaliser
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

struct UnionFind {
  std::vector<int32_t> up;
  explicit UnionFind(size_t n) : up(n) { std::iota(up.begin(), up.end(), 0); }
  int32_t find(int32_t x) {
    while (up[size_t(x)] != x) x = up[size_t(x)] = up[size_t(up[size_t(x)])];
    return x;
  }
  void join(int32_t a, int32_t b) {
    a = find(a), b = find(b);
    if (a != b) up[size_t(std::max(a, b))] = std::min(a, b);
  }
};

}  // namespace

FacetMesh weld(const float *xyz, int64_t n, bool dropdegenerate) {
  FacetMesh m;
  if (n <= 0) return m;
  const size_t nc = 3 * size_t(n);
  // Open addressing with the corner's bits in the slot; the table stays at most half full.
  size_t cap = 1024;
  while (cap < 2 * nc) cap <<= 1;
  struct Slot {
    uint32_t w[3];
    int32_t id;  // -1: empty
  };
  std::vector<Slot> table(cap, Slot{{0, 0, 0}, -1});
  std::vector<int32_t> id(nc);
  for (size_t c = 0; c < nc; ++c) {
    uint32_t w[3];
    for (int k = 0; k < 3; ++k) {
      const float v = xyz[3 * c + size_t(k)] == 0.0f ? 0.0f : xyz[3 * c + size_t(k)];
      std::memcpy(&w[k], &v, 4);
    }
    size_t h = mix((uint64_t(w[0]) << 32 | w[1]) ^ mix(w[2])) & (cap - 1);
    while (table[h].id >= 0 && std::memcmp(table[h].w, w, sizeof w) != 0) h = (h + 1) & (cap - 1);
    if (table[h].id < 0) {
      std::memcpy(table[h].w, w, sizeof w);
      table[h].id = int32_t(m.points.size() / 3);
      for (int k = 0; k < 3; ++k) {
        float v;
        std::memcpy(&v, &w[k], 4);
        m.points.push_back(double(v));
      }
    }
    id[c] = table[h].id;
  }
  m.facets.reserve(size_t(n));
  for (size_t f = 0; f < size_t(n); ++f) {
    const Facet t{id[3 * f], id[3 * f + 1], id[3 * f + 2]};
    if (dropdegenerate && (t[0] == t[1] || t[1] == t[2] || t[2] == t[0])) continue;
    m.facets.push_back(t);
  }
  return m;
}

std::vector<float> floatsof(const FacetMesh &m) {
  std::vector<float> out(9 * m.facets.size());
  for (size_t f = 0; f < m.facets.size(); ++f)
    for (int k = 0; k < 3; ++k)
      for (int c = 0; c < 3; ++c)
        out[9 * f + 3 * size_t(k) + size_t(c)] = float(m.points[3 * size_t(m.facets[f][size_t(k)]) + size_t(c)]);
  return out;
}

SideTable buildsidetable(const FacetMesh &m) {
  SideTable t;
  const size_t ns = 3 * m.facets.size();
  std::vector<std::pair<uint64_t, int32_t>> keyed(ns);
  for (size_t s = 0; s < ns; ++s) {
    const uint32_t a = uint32_t(sidefrom(m, int32_t(s))), b = uint32_t(sideto(m, int32_t(s)));
    keyed[s] = {uint64_t(std::min(a, b)) << 32 | std::max(a, b), int32_t(s)};
  }
  parallelsort(keyed.begin(), keyed.end(), std::less<>());
  t.sides.resize(ns);
  t.edgeofside.resize(ns);
  for (size_t i = 0; i < ns; ++i) {
    if (i == 0 || keyed[i].first != keyed[i - 1].first) t.start.push_back(int64_t(i));
    t.sides[i] = keyed[i].second;
    t.edgeofside[size_t(keyed[i].second)] = int32_t(t.start.size() - 1);
  }
  t.start.push_back(int64_t(ns));
  return t;
}

int32_t pieces(const FacetMesh &m, const SideTable &edges, std::vector<int32_t> &piece) {
  UnionFind uf(m.facets.size());
  for (size_t e = 0; e < edges.nedges(); ++e)
    for (int64_t i = edges.start[e] + 1; i < edges.start[e + 1]; ++i)
      uf.join(edges.sides[size_t(edges.start[e])] / 3, edges.sides[size_t(i)] / 3);
  piece.assign(m.facets.size(), -1);
  std::vector<int32_t> number(m.facets.size(), -1);
  int32_t count = 0;
  for (size_t f = 0; f < m.facets.size(); ++f) {
    const int32_t r = uf.find(int32_t(f));
    if (number[size_t(r)] < 0) number[size_t(r)] = count++;
    piece[f] = number[size_t(r)];
  }
  return count;
}

std::vector<int32_t> pinchedpoints(const FacetMesh &m, const SideTable &edges, const std::vector<int32_t> *piece,
                                   std::vector<int32_t> *fan) {
  // Corner k of facet f is 3f + k; corners of one point are joined across the edges they share.
  UnionFind uf(3 * m.facets.size());
  auto corner = [&](int32_t f, int32_t p) {
    for (int k = 0; k < 3; ++k)
      if (m.facets[size_t(f)][size_t(k)] == p) return 3 * f + k;
    return -1;
  };
  for (size_t e = 0; e < edges.nedges(); ++e) {
    if (edges.count(int32_t(e)) != 2) continue;
    const int32_t s1 = edges.sides[size_t(edges.start[e])], s2 = edges.sides[size_t(edges.start[e]) + 1];
    const int32_t f = s1 / 3, g = s2 / 3;
    for (const int32_t p : {sidefrom(m, s1), sideto(m, s1)}) {
      const int32_t a = corner(f, p), b = corner(g, p);
      if (a >= 0 && b >= 0) uf.join(a, b);
    }
  }
  // Point, piece, fan (its root); two fans of one point in one piece make it pinched.
  std::vector<std::array<int32_t, 3>> byp(3 * m.facets.size());
  for (size_t c = 0; c < byp.size(); ++c)
    byp[c] = {m.facets[c / 3][c % 3], piece ? (*piece)[c / 3] : 0, uf.find(int32_t(c))};
  if (fan) {
    fan->resize(byp.size());
    for (size_t c = 0; c < byp.size(); ++c) (*fan)[c] = byp[c][2];
  }
  std::sort(byp.begin(), byp.end());
  std::vector<int32_t> out;
  for (size_t i = 1; i < byp.size(); ++i)
    if (byp[i][0] == byp[i - 1][0] && byp[i][1] == byp[i - 1][1] && byp[i][2] != byp[i - 1][2] &&
        (out.empty() || out.back() != byp[i][0]))
      out.push_back(byp[i][0]);
  return out;
}

double facetarea(const FacetMesh &m, int32_t f) {
  const double *a = &m.points[3 * size_t(m.facets[size_t(f)][0])], *b = &m.points[3 * size_t(m.facets[size_t(f)][1])],
               *c = &m.points[3 * size_t(m.facets[size_t(f)][2])];
  const double u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, v[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
  const double n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
  return 0.5 * std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
}

double facetvolume(const FacetMesh &m, int32_t f) {
  const Facet &t = m.facets[size_t(f)];
  const double *a = &m.points[3 * size_t(t[0])], *b = &m.points[3 * size_t(t[1])], *c = &m.points[3 * size_t(t[2])];
  return (a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) +
          a[2] * (b[0] * c[1] - b[1] * c[0])) /
         6.0;
}

double signedvolume(const FacetMesh &m) {
  double v = 0;
  for (size_t f = 0; f < m.facets.size(); ++f) v += facetvolume(m, int32_t(f));
  return v;
}

}  // namespace wf

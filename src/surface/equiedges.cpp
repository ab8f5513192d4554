// SPDX-License-Identifier: GPL-2.0-or-later
// Edges from merged vertices: the 3 * ntri triangle sides are keyed by their two vertices
// (lower first) and their surface, sorted and numbered, and one pass over the triangles then
// fills every edge table. Then the checks: two triangles per edge, running along it in
// opposite senses. Neither check stops the run.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "control/messages.h"
#include "surface/sortkit.h"
#include "surface/surfacemesh.h"
#include "surface/surfaceoftriangle.h"

namespace wf {

namespace {

// By side k: its corners, the corner opposite, and the other two sides in order.
constexpr int sidea[3] = {0, 1, 2};
constexpr int sideb[3] = {1, 2, 0};
constexpr int opposite[3] = {2, 0, 1};
constexpr int other1[3] = {1, 2, 0};
constexpr int other2[3] = {2, 0, 1};

// The per-surface flags have one entry per surface of the job, and at least one for the
// surface at hand.
size_t surfacecount(const RunState &rs) {
  return static_cast<size_t>(std::max({rs.stlfiles.n, rs.curstlid, int32_t{1}}));
}

}  // namespace

int32_t surfaceoftriangle(const RunState &rs, int32_t t) {
  (void)t;
  return rs.curstlid;
}

void equiedges(RunState &rs, int &status) {
  say(rs, "Equivalencing STL edges");
  status = 0;
  const size_t ntri = rs.ntri > 0 ? static_cast<size_t>(rs.ntri) : 0;
  const size_t nside = 3 * ntri;
  const int32_t *tri = rs.stltri.data();

  // Key rows: lower vertex, higher vertex, surface.
  std::vector<int32_t> keys;
  allocate(rs, keys, 3 * nside, "equiedges, keys, 1");
  for (size_t t = 0; t < ntri; ++t) {
    const int32_t s = surfaceoftriangle(rs, static_cast<int32_t>(t + 1));
    for (int k = 0; k < 3; ++k) {
      int32_t a = tri[3 * t + sidea[k]], b = tri[3 * t + sideb[k]];
      int32_t *row = keys.data() + 3 * (3 * t + k);
      row[0] = std::min(a, b);
      row[1] = std::max(a, b);
      row[2] = s;
    }
  }
  std::vector<int32_t> p;
  allocate(rs, p, nside, "equiedges, p, 1");
  imatsort(keys.data(), p.data(), 3, static_cast<int32_t>(nside));
  std::vector<int32_t> longrun, iuniq;
  uniq_include_int(rs, keys.data(), p.data(), longrun, 3, static_cast<int32_t>(nside), rs.nedge,
                   iuniq, false);
  release(iuniq);
  release(keys);
  say(rs, "Number of unique edges = " + inttext(rs.nedge, true));

  const size_t ne = rs.nedge > 0 ? static_cast<size_t>(rs.nedge) : 0;
  release(rs.edgesurf);
  allocate(rs, rs.edgevrt, 2 * ne, "equiedges, edgevrt, 1");
  allocate(rs, rs.edgetri, 2 * ne, "equiedges, edgetri, 1");
  allocate(rs, rs.edgeopp, 2 * ne, "equiedges, edgeopp, 1");
  allocate(rs, rs.edgenbr, 4 * ne, "equiedges, edgenbr, 1");  // cleared: 0 on boundary edges
  allocate(rs, rs.edgesurf, ne, "equiedges, edgesurf, 1");
  allocate(rs, rs.edgelen, ne, "equiedges, edgelen, 1");
  allocate(rs, rs.triedge, nside, "equiedges, triedge, 1");
  std::vector<int32_t> ntouch, nslot;  // triangles per edge, edgenbr slots used
  allocate(rs, ntouch, ne, "equiedges, count, 1");
  allocate(rs, nslot, ne, "equiedges, count, 2");

  // Side h of the sorted position i gets the run number: the edge of that side.
  for (size_t i = 0; i < nside; ++i) rs.triedge[static_cast<size_t>(p[i] - 1)] = longrun[i];
  release(p);
  release(longrun);

  int32_t *triedge = rs.triedge.data();
  for (size_t t = 0; t < ntri; ++t) {
    const int32_t s = surfaceoftriangle(rs, static_cast<int32_t>(t + 1));
    const int32_t *te = triedge + 3 * t;
    const int32_t *c = tri + 3 * t;
    // The three counts rise together, each from its old value: a triangle with two sides on
    // one edge adds 1 to it, not 2.
    int32_t next[3];
    for (int k = 0; k < 3; ++k) next[k] = ntouch[static_cast<size_t>(te[k] - 1)] + 1;
    for (int k = 0; k < 3; ++k) ntouch[static_cast<size_t>(te[k] - 1)] = next[k];
    for (int k = 0; k < 3; ++k) {
      const size_t e = static_cast<size_t>(te[k] - 1);
      const size_t h = 3 * t + static_cast<size_t>(k);
      rs.edgelen[e] = std::sqrt(rs.triedgesq[h]);
      rs.edgevrt[2 * e] = c[sidea[k]];
      rs.edgevrt[2 * e + 1] = c[sideb[k]];
      rs.edgesurf[e] = s;
      const int32_t ce = ntouch[e];
      if (ce <= 2) {
        rs.edgetri[2 * e + static_cast<size_t>(ce - 1)] = static_cast<int32_t>(t + 1);
        rs.edgeopp[2 * e + static_cast<size_t>(ce - 1)] = c[opposite[k]];
      }
      const int32_t m = nslot[e];
      if (m + 1 <= 4) rs.edgenbr[4 * e + static_cast<size_t>(m)] = te[other1[k]];
      if (m + 2 <= 4) rs.edgenbr[4 * e + static_cast<size_t>(m) + 1] = te[other2[k]];
      if (m <= 4) nslot[e] = m + 2;
    }
  }

  const size_t nsurf = surfacecount(rs);
  if (rs.surfwatertight.size() < nsurf) rs.surfwatertight.resize(nsurf);
  std::fill(rs.surfwatertight.begin(), rs.surfwatertight.end(), -1);

  long long nopen = 0, ngood = 0, nover = 0;
  size_t firstbad = ne;
  for (size_t e = 0; e < ne; ++e) {
    const int32_t ce = ntouch[e];
    if (ce == 2) {
      ++ngood;
      continue;
    }
    if (ce == 1) {
      ++nopen;
    } else {
      ++nover;
    }
    const int32_t s = rs.edgesurf[e];
    if (s >= 1 && static_cast<size_t>(s) <= rs.surfwatertight.size())
      rs.surfwatertight[static_cast<size_t>(s) - 1] = 0;
    if (firstbad == ne) firstbad = e;
  }

  if (firstbad != ne) {
    status = -1;
    const int32_t s = surfaceoftriangle(rs, rs.edgetri[2 * firstbad]);
    rs.warnstlname = (s >= 1 && s <= rs.stlfiles.n) ? rtrim(rs.stlfiles[static_cast<size_t>(s) - 1])
                                                    : rtrim(rs.stlpath);
    sayblank(rs);
    say(rs, "WARNING");
    say(rs, "STL file " + rs.warnstlname + " is not watertight.");
    say(rs, "Edges with   1 triangle  = " + inttext(nopen, true));
    say(rs, "Edges with   2 triangles = " + inttext(ngood, true));
    say(rs, "Edges with > 2 triangles = " + inttext(nover, true));
    sayblank(rs);
    say(rs, "Consider repairing the STL (e.g. with Tessero) before continuing.");
    sayblank(rs);
  }
  const long long euler = static_cast<long long>(rs.nvrt) + rs.ntri - rs.nedge;
  say(rs, "Euler characteristic   = " + conint(rs, euler));
  say(rs, "Finished edge equivalencing");
  sayblank(rs);
}

void checkorientation(RunState &rs, bool flag, bool &result) {
  (void)flag;
  release(rs.surforiented);
  allocate(rs, rs.surforiented, surfacecount(rs), "checkorientation, surforiented, 1");
  std::fill(rs.surforiented.begin(), rs.surforiented.end(), -1);

  const size_t ne = rs.nedge > 0 ? static_cast<size_t>(rs.nedge) : 0;
  const size_t ntri = rs.ntri > 0 ? static_cast<size_t>(rs.ntri) : 0;
  const int32_t *tri = rs.stltri.data();
  // Whether triangle t runs from a to b: a directly followed by b in its cyclic corner order.
  auto along = [&](int32_t t, int32_t a, int32_t b) {
    if (t < 1 || static_cast<size_t>(t) > ntri) return false;
    const int32_t *c = tri + 3 * static_cast<size_t>(t - 1);
    return (c[0] == a && c[1] == b) || (c[1] == a && c[2] == b) || (c[2] == a && c[0] == b);
  };
  long long count = 0;
  for (size_t e = 0; e < ne; ++e) {
    const int32_t a = rs.edgevrt[2 * e], b = rs.edgevrt[2 * e + 1];
    if (along(rs.edgetri[2 * e], a, b) == along(rs.edgetri[2 * e + 1], a, b)) {
      ++count;
      const int32_t s = e < rs.edgesurf.size() ? rs.edgesurf[e] : rs.curstlid;
      if (s >= 1 && static_cast<size_t>(s) <= rs.surforiented.size())
        rs.surforiented[static_cast<size_t>(s) - 1] = 0;
    }
  }
  result = count == 0;
  if (!result) {
    printwarning(rs);
    printline(rs, "STL file " + rs.stlpath + " has " + inttext(count) +
                      " inversely oriented edges.");
    printline(rs, "Consider repairing the STL with Tessero before continuing.");
    printline(rs, "");
  }
  release(rs.edgesurf);
}

}  // namespace wf

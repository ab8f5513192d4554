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
  rs.rep.say("Equivalencing STL edges");
  status = 0;
  const size_t ntri = rs.ntri > 0 ? static_cast<size_t>(rs.ntri) : 0;
  const size_t nside = 3 * ntri;
  const int32_t *tri = rs.stltri.data();

  // Key rows: lower vertex, higher vertex, surface.
  std::vector<int32_t> keys;
  allocate(keys, 3 * nside, "equiedges, keys, 1");
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
  allocate(p, nside, "equiedges, p, 1");
  imatsort(keys.data(), p.data(), 3, static_cast<int32_t>(nside));
  std::vector<int32_t> longrun, iuniq;
  uniq_include_int(rs, keys.data(), p.data(), longrun, 3, static_cast<int32_t>(nside), rs.nedge,
                   iuniq, false);
  release(iuniq);
  release(keys);
  rs.rep.say("Number of unique edges = " + inttext(rs.nedge, true));

  const size_t ne = rs.nedge > 0 ? static_cast<size_t>(rs.nedge) : 0;
  release(rs.edgesurf);
  allocate(rs.edgevrt, 2 * ne, "equiedges, edgevrt, 1");
  allocate(rs.edgetri, 2 * ne, "equiedges, edgetri, 1");
  allocate(rs.edgeopp, 2 * ne, "equiedges, edgeopp, 1");
  allocate(rs.edgenbr, 4 * ne, "equiedges, edgenbr, 1");  // cleared: 0 on boundary edges
  allocate(rs.edgesurf, ne, "equiedges, edgesurf, 1");
  allocate(rs.edgelen, ne, "equiedges, edgelen, 1");
  allocate(rs.triedge, nside, "equiedges, triedge, 1");

  // Side h of the sorted position i gets the run number: the edge of that side.
  for (size_t i = 0; i < nside; ++i) rs.triedge[static_cast<size_t>(p[i] - 1)] = longrun[i];

  const size_t nsurf = surfacecount(rs);
  if (rs.surfwatertight.size() < nsurf) rs.surfwatertight.resize(nsurf);
  std::fill(rs.surfwatertight.begin(), rs.surfwatertight.end(), -1);

  // One walk over the sides in sorted order fills the tables edge by edge. The sides of an
  // edge stand together there, in triangle order (the sort is stable), so each edge sees the
  // same sequence of sides as a walk over the triangles would give it, while its tables are
  // written in ascending order. The triangle count of an edge rises once per triangle: a
  // triangle with two sides on one edge adds 1, not 2, and both sides see the raised count.
  const int32_t *triedge = rs.triedge.data();
  const double *sidesq = rs.triedgesq.data();
  long long nopen = 0, ngood = 0, nover = 0;
  size_t firstbad = ne;
  for (size_t i = 0; i < nside;) {
    const size_t e = static_cast<size_t>(longrun[i] - 1);
    int32_t count = 0, slots = 0;
    size_t lastt = ntri;
    for (; i < nside && static_cast<size_t>(longrun[i] - 1) == e; ++i) {
      if (i + 8 < nside) {
        const size_t ahead = static_cast<size_t>(p[i + 8] - 1);
        __builtin_prefetch(tri + ahead - ahead % 3);
        __builtin_prefetch(triedge + ahead - ahead % 3);
        __builtin_prefetch(sidesq + ahead);
      }
      const size_t h = static_cast<size_t>(p[i] - 1);
      const size_t t = h / 3;
      const int k = static_cast<int>(h % 3);
      const int32_t *c = tri + 3 * t;
      const int32_t *te = triedge + 3 * t;
      if (t != lastt) {
        ++count;
        lastt = t;
      }
      rs.edgelen[e] = std::sqrt(sidesq[h]);
      rs.edgevrt[2 * e] = c[sidea[k]];
      rs.edgevrt[2 * e + 1] = c[sideb[k]];
      rs.edgesurf[e] = surfaceoftriangle(rs, static_cast<int32_t>(t + 1));
      if (count <= 2) {
        rs.edgetri[2 * e + static_cast<size_t>(count - 1)] = static_cast<int32_t>(t + 1);
        rs.edgeopp[2 * e + static_cast<size_t>(count - 1)] = c[opposite[k]];
      }
      if (slots + 1 <= 4) rs.edgenbr[4 * e + static_cast<size_t>(slots)] = te[other1[k]];
      if (slots + 2 <= 4) rs.edgenbr[4 * e + static_cast<size_t>(slots) + 1] = te[other2[k]];
      if (slots <= 4) slots += 2;
    }
    // c = 1 is an open edge, c = 2 a good one, anything else an overloaded one.
    if (count == 2) {
      ++ngood;
      continue;
    }
    if (count == 1) {
      ++nopen;
    } else {
      ++nover;
    }
    const int32_t sf = rs.edgesurf[e];
    if (sf >= 1 && static_cast<size_t>(sf) <= rs.surfwatertight.size())
      rs.surfwatertight[static_cast<size_t>(sf) - 1] = 0;
    if (firstbad == ne) firstbad = e;
  }
  release(p);
  release(longrun);

  if (firstbad != ne) {
    status = -1;
    const int32_t s = surfaceoftriangle(rs, rs.edgetri[2 * firstbad]);
    rs.warnstlname = (s >= 1 && s <= rs.stlfiles.n) ? rtrim(rs.stlfiles[static_cast<size_t>(s) - 1])
                                                    : rtrim(rs.stlpath);
    rs.rep.blank();
    rs.rep.say("WARNING");
    rs.rep.say("STL file " + rs.warnstlname + " is not watertight.");
    rs.rep.say("Edges with   1 triangle  = " + inttext(nopen, true));
    rs.rep.say("Edges with   2 triangles = " + inttext(ngood, true));
    rs.rep.say("Edges with > 2 triangles = " + inttext(nover, true));
    rs.rep.blank();
    rs.rep.say("Consider repairing the STL (e.g. with Tessero) before continuing.");
    rs.rep.blank();
  }
  const long long euler = static_cast<long long>(rs.nvrt) + rs.ntri - rs.nedge;
  rs.rep.say("Euler characteristic   = " + rs.rep.integer(euler));
  rs.rep.say("Finished edge equivalencing");
  rs.rep.blank();
}

void checkorientation(RunState &rs, bool flag, bool &result) {
  (void)flag;
  release(rs.surforiented);
  allocate(rs.surforiented, surfacecount(rs), "checkorientation, surforiented, 1");
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
    rs.rep.printwarning();
    rs.rep.printline("STL file " + rs.stlpath + " has " + inttext(count) +
                      " inversely oriented edges.");
    rs.rep.printline("Consider repairing the STL with Tessero before continuing.");
    rs.rep.printline("");
  }
  release(rs.edgesurf);
}

}  // namespace wf

// SPDX-License-Identifier: GPL-2.0-or-later
#include "surface/preparesurface.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "base/memory.h"
#include "base/text.h"
#include "base/textio.h"
#include "surface/sortkit.h"

namespace wf {

namespace {

constexpr double machineprecision = 0x1p-52;  // smallest tolerance ever used
constexpr double integerprecision = 0x1p-63;  // finest pitch per unit of box size for int64

inline double sqdist(const double *a, const double *b) {
  const double dx = b[0] - a[0], dy = b[1] - a[1], dz = b[2] - a[2];
  return dx * dx + dy * dy + dz * dz;
}

// Lattice index through a signed 64-bit integer. Values beyond its range (and values that are
// not numbers) give the integer's lowest value, as the conversion of the processor does.
inline double latticeindex(double x) {
  const double q = std::round(x);  // halves away from zero
  const int64_t i = (q > -0x1p63 && q < 0x1p63) ? static_cast<int64_t>(q) : INT64_MIN;
  return static_cast<double>(i);
}

}  // namespace

double minimumedge(const RawSurface &raw) {
  const BBox &box = raw.box;
  const double dmax = std::max({box.size[0], box.size[1], box.size[2]});
  double minsq = (2.0 * dmax) * (2.0 * dmax);
  const size_t ntri = raw.ntri > 0 ? static_cast<size_t>(raw.ntri) : 0;
  if (raw.vrt.size() < 9 * ntri) return std::sqrt(minsq);
  const double *v = raw.vrt.data();
  for (size_t t = 0; t < ntri; ++t) {
    const double *c = v + 9 * t;
    // sides 1-2, 2-3, 3-1; a side of length zero does not count
    double d = sqdist(c, c + 3);
    if (d != 0.0 && d < minsq) minsq = d;
    d = sqdist(c + 3, c + 6);
    if (d != 0.0 && d < minsq) minsq = d;
    d = sqdist(c + 6, c);
    if (d != 0.0 && d < minsq) minsq = d;
  }
  return std::sqrt(minsq);
}

SnapTolerance snaptolerance(const BBox &box, double minedgelen, const Tolerances &rules) {
  const double dx = box.size[0], dy = box.size[1], dz = box.size[2];
  const double dmax = std::max({dx, dy, dz});
  const double t1 = rules.reltoledge * minedgelen;
  const double t2 = rules.reltolbox * dmax;
  SnapTolerance st;
  st.tol = rules.tolbyedge ? t1 : (rules.tolbybox ? t2 : std::min(t1, t2));
  st.intbox = integerprecision * dmax;
  st.floor = std::max({machineprecision, integerprecision * dx, integerprecision * dy,
                       integerprecision * dz});
  return st;
}

void snapvertices(RawSurface &raw, double pitch) {
  // The lattice is centred on the box, so the bound of its pitch depends on the size alone.
  double centre[3];
  for (int k = 0; k < 3; ++k) centre[k] = (raw.box.min[k] + raw.box.max[k]) * 0.5;
  const size_t n = std::min(raw.vrt.size() / 3, static_cast<size_t>(std::max(raw.nvrt, 0)));
  double *v = raw.vrt.data();
  for (size_t j = 0; j < n; ++j) {
    for (int k = 0; k < 3; ++k) {
      const double q = latticeindex((v[3 * j + k] - centre[k]) / pitch);
      v[3 * j + k] = q * pitch + centre[k];
    }
  }
}

void mergevertices(RawSurface &raw, SurfaceMesh &mesh, std::vector<double> &triedgesq) {
  // The soup holds three raw vertices per triangle; a soup shorter than its counts is taken as
  // far as it goes.
  int32_t ntri32 = std::max(raw.ntri, int32_t{0});
  if (raw.vrt.size() < 9 * static_cast<size_t>(ntri32))
    ntri32 = static_cast<int32_t>(raw.vrt.size() / 9);
  const int32_t nraw = 3 * ntri32;
  const size_t n = static_cast<size_t>(nraw);
  const size_t ntri = static_cast<size_t>(ntri32);

  std::vector<int32_t> p;
  allocate(p, n, "equivertices, p, 1");
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<int32_t>(i + 1);
  dmatsort(raw.vrt.data(), p.data(), 3, nraw);
  std::vector<int32_t> longrun, iuniq;
  int32_t nvrt = 0;
  uniq_include(raw.vrt.data(), p.data(), longrun, 3, nraw, nvrt, iuniq, false);
  release(iuniq);

  // Corner k of triangle t is raw vertex 3t + k: it keeps its place and takes the number of
  // its run. Walking the sorted positions sets each raw vertex once.
  mesh.ntri = ntri32;
  mesh.nvrt = nvrt;
  mesh.box = raw.box;
  allocate(mesh.tri, 3 * ntri, "equivertices, stltri, 1");
  for (size_t i = 0; i < n; ++i) mesh.tri[static_cast<size_t>(p[i] - 1)] = longrun[i];
  release(p);
  release(longrun);

  // Members of a run are identical, so the last writer in file order makes no difference.
  allocate(mesh.vrt, 3 * static_cast<size_t>(std::max(nvrt, 0)), "equivertices, stlvrt, 1");
  const double *rv = raw.vrt.data();
  for (size_t j = 0; j < n; ++j) {
    double *dst = mesh.vrt.data() + 3 * static_cast<size_t>(mesh.tri[j] - 1);
    dst[0] = rv[3 * j];
    dst[1] = rv[3 * j + 1];
    dst[2] = rv[3 * j + 2];
  }

  // Squared side lengths of the snapped geometry: corners 2-1, 3-2, 1-3.
  allocate(triedgesq, 3 * ntri, "equivertices, triedgesq, 1");
  const double *vrt = mesh.vrt.data();
  for (size_t t = 0; t < ntri; ++t) {
    const int32_t *c = mesh.tri.data() + 3 * t;
    const double *p1 = vrt + 3 * static_cast<size_t>(c[0] - 1);
    const double *p2 = vrt + 3 * static_cast<size_t>(c[1] - 1);
    const double *p3 = vrt + 3 * static_cast<size_t>(c[2] - 1);
    triedgesq[3 * t] = sqdist(p1, p2);
    triedgesq[3 * t + 1] = sqdist(p2, p3);
    triedgesq[3 * t + 2] = sqdist(p3, p1);
  }
  release(raw.vrt);
  raw.nvrt = 0;
}

SurfaceCheck preparesurface(Reporter &rep, RawSurface &raw, const Tolerances &rules,
                            const std::string &surfacename, const std::string &stlpath,
                            SurfaceMesh &mesh, EdgeTable &edges) {
  SurfaceCheck check;
  const double minedgelen = minimumedge(raw);
  rep.say("Minimum edge length = " + numtext(minedgelen));

  const SnapTolerance st = snaptolerance(raw.box, minedgelen, rules);
  rep.say("Machine precision = " + numtext(machineprecision));
  rep.say("STL precision for 8-byte integers = " + numtext(st.intbox));
  rep.say("Absolute tolerance = " + numtext(st.tol));
  rep.blank();
  if (st.raised()) {
    rep.printwarning();
    rep.printline("Absolute tolerance must be greater than:");
    rep.printline(numtext(st.floor));
    rep.printline("");
    rep.printline("Increasing tolerance to " + numtext(st.floor));
    rep.printline("");
  }
  snapvertices(raw, st.pitch());

  rep.say("Equivalencing vertices");
  std::vector<double> triedgesq;
  mergevertices(raw, mesh, triedgesq);
  mesh.minedgelen = minedgelen;
  rep.say("Number of unique vertices = " + inttext(mesh.nvrt, true));
  rep.say("Finished vertex equivalencing");
  rep.blank();

  rep.say("Equivalencing STL edges");
  const EdgeCounts counts = buildedges(mesh, triedgesq, edges);
  release(triedgesq);
  rep.say("Number of unique edges = " + inttext(edges.n, true));
  check.watertight = counts.watertight();
  if (!check.watertight) {
    rep.blank();
    rep.say("WARNING");
    rep.say("STL file " + surfacename + " is not watertight.");
    rep.say("Edges with   1 triangle  = " + inttext(counts.open, true));
    rep.say("Edges with   2 triangles = " + inttext(counts.good, true));
    rep.say("Edges with > 2 triangles = " + inttext(counts.over, true));
    rep.blank();
    rep.say("Consider repairing the STL (e.g. with Tessero) before continuing.");
    rep.blank();
  }
  const long long euler = static_cast<long long>(mesh.nvrt) + mesh.ntri - edges.n;
  rep.say("Euler characteristic   = " + rep.integer(euler));
  rep.say("Finished edge equivalencing");
  rep.blank();

  if (check.watertight) {
    const int64_t inverted = countinverted(mesh, edges);
    check.oriented = inverted == 0;
    if (!check.oriented) {
      rep.printwarning();
      rep.printline("STL file " + stlpath + " has " + inttext(inverted) +
                    " inversely oriented edges.");
      rep.printline("Consider repairing the STL with Tessero before continuing.");
      rep.printline("");
    }
    return check;
  }
  rep.printwarning();
  rep.printline("STL file " + surfacename + " has non-manifold edges");
  rep.printline("");
  rep.printline("Use a larger tolerance multiplier, or repair the geometry in Tessero");
  rep.printline("");
  check.status = -1;
  return check;
}

}  // namespace wf

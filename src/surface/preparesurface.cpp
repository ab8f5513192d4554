// SPDX-License-Identifier: GPL-3.0-or-later
#include "surface/preparesurface.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>

#include "base/memory.h"
#include "surface/sortkit.h"

namespace wf {

namespace {

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
  st.floor = std::max({machineprecision, integerprecision * dx, integerprecision * dy, integerprecision * dz});
  return st;
}

void snapvertices(RawSurface &raw, double pitch, std::vector<uint64_t> *keys) {
  // The lattice is centred on the box, so the bound of its pitch depends on the size alone.
  double centre[3];
  for (int k = 0; k < 3; ++k) centre[k] = (raw.box.min[k] + raw.box.max[k]) * 0.5;
  const size_t n = std::min(raw.vrt.size() / 3, static_cast<size_t>(std::max(raw.nvrt, 0)));
  double *v = raw.vrt.data();

  // Lattice keys. A snapped coordinate is fl(fl(q pitch) + centre), within one spacing of
  // doubles at the largest coordinate M of the exact q pitch + centre; so where the pitch
  // exceeds twice that spacing (here four times, for margin), larger indices give strictly larger
  // coordinates and equal indices equal ones: the indices order the vertices as the coordinates.
  int64_t qlow[3] = {0, 0, 0};
  double qmin[3] = {0, 0, 0}, qmax[3] = {0, 0, 0};
  int shift[3] = {0, 0, 0}, width[3] = {0, 0, 0};
  bool keyed = keys != nullptr && n > 0 && std::isfinite(pitch) && pitch > 0;
  int totalbits = 0;
  for (int k = 2; keyed && k >= 0; --k) {
    const double lo = raw.box.min[k], hi = raw.box.max[k];
    if (!std::isfinite(lo) || !std::isfinite(hi) || !std::isfinite(centre[k])) {
      keyed = false;
      break;
    }
    const double m = std::max(std::fabs(lo), std::fabs(hi)) + pitch;
    const double spacing = std::nextafter(m, std::numeric_limits<double>::infinity()) - m;
    const double qa = std::round((lo - centre[k]) / pitch), qb = std::round((hi - centre[k]) / pitch);
    if (!(pitch > 4 * spacing) || !(qa > -0x1p62 && qb < 0x1p62)) {
      keyed = false;
      break;
    }
    qlow[k] = static_cast<int64_t>(qa);
    qmin[k] = qa;
    qmax[k] = qb;
    const uint64_t range = static_cast<uint64_t>(static_cast<int64_t>(qb) - qlow[k]);
    width[k] = range == 0 ? 0 : 64 - __builtin_clzll(range);
    shift[k] = totalbits;
    totalbits += width[k];
    if (totalbits > 64) keyed = false;
  }
  if (keyed) {
    try {
      keys->assign(n, 0);
    } catch (const std::bad_alloc &) {
      keyed = false;  // the keys only speed the merge up: it goes on without them
    }
  }
  if (!keyed) {
    if (keys) keys->clear();
    for (size_t j = 0; j < n; ++j) {
      for (int k = 0; k < 3; ++k) {
        const double q = latticeindex((v[3 * j + k] - centre[k]) / pitch);
        v[3 * j + k] = q * pitch + centre[k];
      }
    }
    return;
  }
  uint64_t *key = keys->data();
  bool inrange = true;
  for (size_t j = 0; j < n; ++j) {
    uint64_t kj = 0;
    for (int k = 0; k < 3; ++k) {
      const double q = latticeindex((v[3 * j + k] - centre[k]) / pitch);
      v[3 * j + k] = q * pitch + centre[k];
      // An index outside the box's range (a coordinate that is not a number) ends the keys.
      if (!(q >= qmin[k] && q <= qmax[k])) {
        inrange = false;
        continue;
      }
      const uint64_t off = static_cast<uint64_t>(static_cast<int64_t>(q) - qlow[k]);
      if (width[k] > 0) kj |= off << shift[k];
    }
    key[j] = kj;
  }
  if (!inrange) keys->clear();
}

void mergevertices(RawSurface &raw, SurfaceMesh &mesh, std::vector<double> &triedgesq,
                   const std::vector<uint64_t> *keys, Scratch *scratch) {
  // The soup holds three raw vertices per triangle; a soup shorter than its counts is taken as
  // far as it goes.
  int32_t ntri32 = std::max(raw.ntri, int32_t{0});
  if (raw.vrt.size() < 9 * static_cast<size_t>(ntri32)) ntri32 = static_cast<int32_t>(raw.vrt.size() / 9);
  const int32_t nraw = 3 * ntri32;
  const size_t n = static_cast<size_t>(nraw);
  const size_t ntri = static_cast<size_t>(ntri32);
  mesh.ntri = ntri32;
  mesh.box = raw.box;

  if (keys && keys->size() >= n) {
    // The keys order the vertices as their coordinates do and are equal exactly for equal
    // vertices, so the rank of a vertex's key among the distinct keys is its number in the
    // sort of the coordinates. Corner k of triangle t is raw vertex 3t + k and takes the rank.
    Scratch local;
    Scratch &work = scratch ? *scratch : local;
    allocate(mesh.tri, 3 * ntri, "equivertices, stltri, 1");
    KeyRanks ranks;
    if (rankkeys(keys->data(), nraw, mesh.tri.data(), ranks, work)) {
      const int32_t nvrt = ranks.nuniq;
      mesh.nvrt = nvrt;
      // A vertex is bit-identical wherever its key appears: its first appearance gives it.
      allocate(mesh.vrt, 3 * static_cast<size_t>(nvrt), "equivertices, stlvrt, 1");
      const double *rv = raw.vrt.data();
      double *dst = mesh.vrt.data();
      for (size_t r = 0; r < static_cast<size_t>(nvrt); ++r) {
        const double *src = rv + 3 * static_cast<size_t>(ranks.first[r]);
        dst[3 * r] = src[0];
        dst[3 * r + 1] = src[1];
        dst[3 * r + 2] = src[2];
      }
      // Squared sides of the snapped geometry, corners 2-1, 3-2, 1-3: the soup holds the very
      // coordinates of the merged vertices, in triangle order.
      allocate(triedgesq, 3 * ntri, "equivertices, triedgesq, 1");
      for (size_t t = 0; t < ntri; ++t) {
        const double *c = rv + 9 * t;
        triedgesq[3 * t] = sqdist(c, c + 3);
        triedgesq[3 * t + 1] = sqdist(c + 3, c + 6);
        triedgesq[3 * t + 2] = sqdist(c + 6, c);
      }
      release(raw.vrt);
      raw.nvrt = 0;
      return;
    }
    // Without the scratch of the table, the sort of the coordinates does the same.
    release(mesh.tri);
    local.release();
  }

  std::vector<int32_t> p;
  allocate(p, n, "equivertices, p, 1");
  std::vector<int32_t> longrun, iuniq;
  int32_t nvrt = 0;
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<int32_t>(i + 1);
  sortdoublerows(raw.vrt.data(), p.data(), 3, nraw);
  numberdoubleruns(raw.vrt.data(), p.data(), longrun, 3, nraw, nvrt, iuniq);
  release(iuniq);

  // Corner k of triangle t is raw vertex 3t + k: it keeps its place and takes the number of
  // its run. Walking the sorted positions sets each raw vertex once.
  mesh.nvrt = nvrt;
  allocate(mesh.tri, 3 * ntri, "equivertices, stltri, 1");
  for (size_t i = 0; i < n; ++i) mesh.tri[static_cast<size_t>(p[i] - 1)] = longrun[i];
  release(p);
  release(longrun);

  // Members of a run compare equal; the last writer in file order gives the vertex (it decides
  // between zeros of either sign).
  allocate(mesh.vrt, 3 * static_cast<size_t>(std::max(nvrt, 0)), "equivertices, stlvrt, 1");
  const double *rv = raw.vrt.data();
  for (size_t j = 0; j < n; ++j) {
    double *dst = mesh.vrt.data() + 3 * static_cast<size_t>(mesh.tri[j] - 1);
    dst[0] = rv[3 * j];
    dst[1] = rv[3 * j + 1];
    dst[2] = rv[3 * j + 2];
  }

  // Squared side lengths of the merged geometry: corners 2-1, 3-2, 1-3.
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

PreparedSurface preparemesh(RawSurface &raw, const Tolerances &rules, const PrepareStageFn &onstage) {
  auto tell = [&](PrepareStage stage, const PreparedSurface &sofar) {
    if (onstage) onstage(stage, sofar);
  };
  PreparedSurface prep;
  prep.minedgelen = minimumedge(raw);
  prep.tolerance = snaptolerance(raw.box, prep.minedgelen, rules);
  tell(PrepareStage::snap, prep);
  std::vector<uint64_t> keys;
  snapvertices(raw, prep.tolerance.pitch(), &keys);

  // One block of scratch serves the merge and then the edges; it goes with this call.
  Scratch scratch;
  tell(PrepareStage::merge, prep);
  std::vector<double> triedgesq;
  mergevertices(raw, prep.mesh, triedgesq, &keys, &scratch);
  release(keys);
  prep.mesh.minedgelen = prep.minedgelen;
  tell(PrepareStage::edges, prep);

  prep.counts = buildedges(prep.mesh, triedgesq, prep.edges, &scratch);
  scratch.release();
  release(triedgesq);
  prep.euler = static_cast<long long>(prep.mesh.nvrt) + prep.mesh.ntri - prep.edges.n;
  SurfaceCheck &check = prep.check;
  check.watertight = prep.counts.watertight();
  if (check.watertight) {
    check.oriented = prep.counts.inverted == 0;
  } else {
    check.status = -1;
  }
  return prep;
}

}  // namespace wf

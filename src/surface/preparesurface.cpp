// SPDX-License-Identifier: GPL-2.0-or-later
// From STL soup to a mesh: an absolute tolerance taken from the surface itself, every raw
// vertex snapped to a lattice of that pitch, and identical vertices merged by sorting.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "control/messages.h"
#include "base/textio.h"
#include "surface/sortkit.h"
#include "surface/surfacemesh.h"

namespace wf {

namespace {

constexpr double machineprecision = 0x1p-52;  // smallest tolerance ever used
constexpr double integerprecision = 0x1p-63;  // finest pitch per unit of box size for int64

inline double sqdist(const double *a, const double *b) {
  double dx = b[0] - a[0], dy = b[1] - a[1], dz = b[2] - a[2];
  return dx * dx + dy * dy + dz * dz;
}

// Lattice index through a signed 64-bit integer. Values beyond its range (and values that are
// not numbers) give the integer's lowest value, as the conversion of the processor does.
inline double latticeindex(double x) {
  double q = std::round(x);  // halves away from zero
  int64_t i = (q > -0x1p63 && q < 0x1p63) ? static_cast<int64_t>(q) : INT64_MIN;
  return static_cast<double>(i);
}

}  // namespace

void preparesurface(RunState &rs, int &status, bool flag1, bool flag2, bool &result) {
  status = 0;
  const BBox &box = rs.stlbbox;
  const double dmax = std::max({box.size[0], box.size[1], box.size[2]});
  double minsq = (2.0 * dmax) * (2.0 * dmax);
  const size_t ntri = rs.ntri > 0 ? static_cast<size_t>(rs.ntri) : 0;
  const double *raw = rs.rawvrt.data();
  if (rs.rawvrt.size() >= 9 * ntri) {
    for (size_t t = 0; t < ntri; ++t) {
      const double *c = raw + 9 * t;
      // sides 1-2, 2-3, 3-1; a side of length zero does not count
      double d = sqdist(c, c + 3);
      if (d != 0.0 && d < minsq) minsq = d;
      d = sqdist(c + 3, c + 6);
      if (d != 0.0 && d < minsq) minsq = d;
      d = sqdist(c + 6, c);
      if (d != 0.0 && d < minsq) minsq = d;
    }
  }
  rs.minedgelen = std::sqrt(minsq);
  rs.rep.say("Minimum edge length = " + numtext(rs.minedgelen));

  snapvertices(rs);
  equivertices(rs);
  int code = 0;
  (void)flag1;  // handed on to the edges, where it has no effect
  equiedges(rs, code);
  if (code == 0) {
    checkorientation(rs, flag2, result);
    return;
  }
  rs.rep.printwarning();
  rs.rep.printline("STL file " + rs.warnstlname + " has non-manifold edges");
  rs.rep.printline("");
  rs.rep.printline("Use a larger tolerance multiplier, or repair the geometry in Tessero");
  rs.rep.printline("");
  status = -1;
}

void snapvertices(RunState &rs) {
  const BBox &box = rs.stlbbox;
  const double dx = box.size[0], dy = box.size[1], dz = box.size[2];
  const double dmax = std::max({dx, dy, dz});
  const double t1 = rs.reltoledge * rs.minedgelen;
  const double t2 = rs.reltolbox * dmax;
  double tol = rs.tolbyedge ? t1 : (rs.tolbybox ? t2 : std::min(t1, t2));
  rs.rep.say("Machine precision = " + numtext(machineprecision));
  rs.rep.say("STL precision for 8-byte integers = " + numtext(integerprecision * dmax));
  rs.rep.say("Absolute tolerance = " + numtext(tol));
  rs.rep.blank();

  const double floor = std::max({machineprecision, integerprecision * dx, integerprecision * dy,
                                 integerprecision * dz});
  if (floor > tol) {
    rs.rep.printwarning();
    rs.rep.printline("Absolute tolerance must be greater than:");
    rs.rep.printline(numtext(floor));
    rs.rep.printline("");
    rs.rep.printline("Increasing tolerance to " + numtext(floor));
    rs.rep.printline("");
    tol = floor;
  }

  // The lattice is centred on the box, so the bound above depends on its size alone.
  double centre[3];
  for (int k = 0; k < 3; ++k) centre[k] = (box.min[k] + box.max[k]) * 0.5;
  const size_t n = std::min(rs.rawvrt.size() / 3, static_cast<size_t>(std::max(rs.nrawvrt, 0)));
  double *v = rs.rawvrt.data();
  for (size_t j = 0; j < n; ++j) {
    for (int k = 0; k < 3; ++k) {
      double q = latticeindex((v[3 * j + k] - centre[k]) / tol);
      v[3 * j + k] = q * tol + centre[k];
    }
  }
}

void equivertices(RunState &rs) {
  rs.rep.say("Equivalencing vertices");
  // The soup holds three raw vertices per triangle; a soup shorter than its counts is taken
  // as far as it goes.
  if (rs.ntri < 0) rs.ntri = 0;
  if (rs.rawvrt.size() < 9 * static_cast<size_t>(rs.ntri))
    rs.ntri = static_cast<int32_t>(rs.rawvrt.size() / 9);
  rs.nrawvrt = 3 * rs.ntri;
  const int32_t nraw = rs.nrawvrt;
  const size_t n = static_cast<size_t>(nraw);
  const size_t ntri = static_cast<size_t>(rs.ntri);

  std::vector<int32_t> p;
  allocate(p, n, "equivertices, p, 1");
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<int32_t>(i + 1);
  dmatsort(rs, rs.rawvrt.data(), p.data(), 3, nraw);
  std::vector<int32_t> longrun, iuniq;
  uniq_include(rs, rs.rawvrt.data(), p.data(), longrun, 3, nraw, rs.nvrt, iuniq, false);
  release(iuniq);
  rs.rep.say("Number of unique vertices = " + inttext(rs.nvrt, true));

  // Corner k of triangle t is raw vertex 3(t-1)+k: it keeps its place and takes the number
  // of its run. Walking the sorted positions sets each raw vertex once.
  allocate(rs.stltri, 3 * ntri, "equivertices, stltri, 1");
  for (size_t i = 0; i < n; ++i) rs.stltri[static_cast<size_t>(p[i] - 1)] = longrun[i];
  release(p);
  release(longrun);

  // Members of a run are identical, so the last writer in file order makes no difference.
  allocate(rs.stlvrt, 3 * static_cast<size_t>(std::max(rs.nvrt, 0)), "equivertices, stlvrt, 1");
  const double *raw = rs.rawvrt.data();
  for (size_t j = 0; j < n; ++j) {
    size_t col = static_cast<size_t>(rs.stltri[j] - 1);
    double *dst = rs.stlvrt.data() + 3 * col;
    dst[0] = raw[3 * j];
    dst[1] = raw[3 * j + 1];
    dst[2] = raw[3 * j + 2];
  }

  // Squared side lengths of the snapped geometry: corners 2-1, 3-2, 1-3.
  allocate(rs.triedgesq, 3 * ntri, "equivertices, triedgesq, 1");
  const double *vrt = rs.stlvrt.data();
  for (size_t t = 0; t < ntri; ++t) {
    const int32_t *c = rs.stltri.data() + 3 * t;
    const double *p1 = vrt + 3 * static_cast<size_t>(c[0] - 1);
    const double *p2 = vrt + 3 * static_cast<size_t>(c[1] - 1);
    const double *p3 = vrt + 3 * static_cast<size_t>(c[2] - 1);
    rs.triedgesq[3 * t] = sqdist(p1, p2);
    rs.triedgesq[3 * t + 1] = sqdist(p2, p3);
    rs.triedgesq[3 * t + 2] = sqdist(p3, p1);
  }
  release(rs.rawvrt);
  rs.rep.say("Finished vertex equivalencing");
  rs.rep.blank();
}

}  // namespace wf

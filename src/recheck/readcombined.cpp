// SPDX-License-Identifier: GPL-2.0-or-later
// Combined geometry reader: every file of stlfiles read raw and joined into one triangle soup in
// rawvrt, three columns per triangle across all files, with the first vertex and triangle of each
// file and a box per file. The files are appended to one growing array, so each is copied once.
#include "recheck/readcombined.h"

#include <algorithm>
#include <cfloat>
#include <cstring>

#include "control/messages.h"
#include "base/textio.h"
#include "surface/readstl.h"

namespace wf {

namespace {

// Per axis minimum and maximum over columns [first, last) of a 3 x n array; an empty range gives
// the largest finite double as minimum and its negative as maximum.
void columnbox(const std::vector<double> &a, size_t first, size_t last, double mn[3],
               double mx[3]) {
  for (int k = 0; k < 3; ++k) {
    mn[k] = DBL_MAX;
    mx[k] = -DBL_MAX;
  }
  for (size_t j = first; j < last; ++j)
    for (int k = 0; k < 3; ++k) {
      double v = a[3 * j + size_t(k)];
      if (v < mn[k]) mn[k] = v;
      if (v > mx[k]) mx[k] = v;
    }
}

void totalboxline(RunState &rs, double mn, double mx, const char *text) {
  char buf[64];
  char *p = scifield(buf, mn, 14, 6);
  size_t len = std::strlen(text);
  std::memcpy(p, text, len);
  p += len;
  p = scifield(p, mx, 14, 6);
  rs.rep.raw(std::string_view(buf, size_t(p - buf)));
}

}  // namespace

void readcombined(RunState &rs, bool allowempty) {
  const int32_t nfiles = rs.stlfiles.n;
  if (nfiles < 1 && !allowempty) {
    rs.rep.post(1, 47);
    fatalsilent();
  }
  const size_t nf = size_t(std::max(nfiles, int32_t{0}));
  allocate(rs.partvrtstart, nf + 1, "readcombined, partvrtstart, 1");
  allocate(rs.parttristart, nf + 1, "readcombined, parttristart, 1");
  allocate(rs.partbox, 6 * std::max<size_t>(nf, 1), "readcombined, partbox, 1");
  rs.rep.blank();

  std::vector<double> collected;
  int64_t tv = 0, tt = 0;
  for (size_t i = 0; i < nf; ++i) {
    rs.stlpath = rtrim(rs.stlfiles[i]);
    if (tv > 0) release(rs.stlvrt);
    readstlraw(rs, false);
    rs.partvrtstart[i] = int32_t(tv + 1);
    rs.parttristart[i] = int32_t(tt + 1);
    const size_t nv = size_t(std::max(rs.nvrt, int32_t{0}));
    tv += nv;
    tt += std::max(rs.ntri, int32_t{0});
    columnbox(rs.stlvrt, 0, nv, &rs.partbox[6 * i], &rs.partbox[6 * i + 3]);
    if (i == 0) {
      collected.swap(rs.stlvrt);  // the first file needs no copy
      collected.resize(3 * nv);
    } else {
      try {
        collected.insert(collected.end(), rs.stlvrt.begin(), rs.stlvrt.begin() + 3 * nv);
      } catch (const std::bad_alloc &) {
        checkalloc(1, "readcombined, collected, 1");
      }
    }
  }

  rs.nvrt = int32_t(tv);
  rs.ntri = int32_t(tt);
  release(rs.stlvrt);
  rs.stlvrt.swap(collected);
  rs.partvrtstart[nf] = int32_t(tv + 1);
  rs.parttristart[nf] = int32_t(tt + 1);

  if (nfiles > 1) {
    rs.rep.say("Total number of vertices  = " + inttext(tv));
    rs.rep.say("Total number of triangles = " + inttext(tt));
    rs.rep.blank();
  }

  double mn[3], mx[3];
  columnbox(rs.stlvrt, 0, size_t(tv), mn, mx);
  if (nfiles > 1) {
    rs.rep.say("Total bounding box:");
    totalboxline(rs, mn[0], mx[0], " <= x <= ");
    totalboxline(rs, mn[1], mx[1], " <= y <= ");
    totalboxline(rs, mn[2], mx[2], " <= z <= ");
    rs.rep.blank();
  }
  for (int k = 0; k < 3; ++k) {
    rs.stlbbox.min[k] = mn[k];
    rs.stlbbox.max[k] = mx[k];
    rs.stlbbox.size[k] = mx[k] - mn[k];
    rs.stlbbox.centre[k] = (mn[k] + mx[k]) * 0.5;
  }

  rs.nrawvrt = rs.nvrt;
  release(rs.rawvrt);
  rs.rawvrt.swap(rs.stlvrt);
  release(rs.stlvrt);
}

}  // namespace wf

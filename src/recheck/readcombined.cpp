// SPDX-License-Identifier: GPL-3.0-or-later
#include "recheck/readcombined.h"

#include <algorithm>
#include <cfloat>
#include <cstring>

#include "base/fatal.h"
#include "base/text.h"
#include "base/textio.h"
#include "surface/readstl.h"

namespace wf {

namespace {

// Per axis minimum and maximum over the columns of a 3 x n array; an empty set gives the largest
// finite double as minimum and its negative as maximum.
void columnbox(const std::vector<double> &a, size_t n, double mn[3], double mx[3]) {
  for (int k = 0; k < 3; ++k) {
    mn[k] = DBL_MAX;
    mx[k] = -DBL_MAX;
  }
  for (size_t j = 0; j < n; ++j)
    for (size_t k = 0; k < 3; ++k) {
      const double v = a[3 * j + k];
      if (v < mn[k]) mn[k] = v;
      if (v > mx[k]) mx[k] = v;
    }
}

void totalboxline(Reporter &rep, double mn, double mx, const char *text) {
  char buf[64];
  char *p = scifield(buf, mn, 14, 6);
  const size_t len = std::strlen(text);
  std::memcpy(p, text, len);
  p += len;
  p = scifield(p, mx, 14, 6);
  rep.raw(std::string_view(buf, size_t(p - buf)));
}

}  // namespace

RawSurface readcombined(Reporter &rep, const std::vector<std::string> &files, bool allowempty,
                        std::string &stlpath, int &byteorder, CombinedParts *parts) {
  if (files.empty() && !allowempty) fatal(47);
  const size_t nf = files.size();
  CombinedParts local;
  CombinedParts &part = parts ? *parts : local;
  part.vrtstart.assign(nf + 1, 0);
  part.tristart.assign(nf + 1, 0);
  rep.blank();

  RawSurface all;
  int64_t tv = 0, tt = 0;
  for (size_t i = 0; i < nf; ++i) {
    stlpath = rtrim(files[i]);
    RawSurface one = readstl(rep, stlpath, byteorder, false);
    part.vrtstart[i] = int32_t(tv + 1);
    part.tristart[i] = int32_t(tt + 1);
    const size_t nv = size_t(std::max(one.nvrt, int32_t{0}));
    tv += nv;
    tt += std::max(one.ntri, int32_t{0});
    if (i == 0) {
      all.vrt = std::move(one.vrt);  // the first file needs no copy
      all.vrt.resize(3 * nv);
    } else {
      try {
        all.vrt.insert(all.vrt.end(), one.vrt.begin(), one.vrt.begin() + 3 * nv);
      } catch (const std::bad_alloc &) {
        checkalloc(1, "readcombined, collected, 1");
      }
    }
  }
  all.nvrt = int32_t(tv);
  all.ntri = int32_t(tt);
  part.vrtstart[nf] = int32_t(tv + 1);
  part.tristart[nf] = int32_t(tt + 1);

  if (nf > 1) {
    rep.say("Total number of vertices  = " + inttext(tv));
    rep.say("Total number of triangles = " + inttext(tt));
    rep.blank();
  }
  double mn[3], mx[3];
  columnbox(all.vrt, size_t(tv), mn, mx);
  if (nf > 1) {
    rep.say("Total bounding box:");
    totalboxline(rep, mn[0], mx[0], " <= x <= ");
    totalboxline(rep, mn[1], mx[1], " <= y <= ");
    totalboxline(rep, mn[2], mx[2], " <= z <= ");
    rep.blank();
  }
  for (int k = 0; k < 3; ++k) {
    all.box.min[k] = mn[k];
    all.box.max[k] = mx[k];
    all.box.size[k] = mx[k] - mn[k];
    all.box.centre[k] = (mn[k] + mx[k]) * 0.5;
  }
  return all;
}

}  // namespace wf

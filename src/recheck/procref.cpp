// SPDX-License-Identifier: GPL-2.0-or-later
#include "recheck/procref.h"

#include "base/text.h"
#include "surface/normals.h"
#include "surface/readstl.h"

namespace wf {

QuerySet buildqueryset(Reporter &rep, const char *title, const std::string &file,
                       std::string &stlpath, int &byteorder) {
  rep.say(title);
  stlpath = rtrim(file);
  RawSurface raw = readstl(rep, stlpath, byteorder, false);
  rep.say("Calculating surface normals");
  TriangleTerms terms;
  triangleterms(raw.vrt.data(), static_cast<size_t>(raw.nvrt), nullptr, raw.ntri, terms);

  QuerySet set;
  set.nvrt = raw.nvrt;
  set.ntri = raw.ntri;
  for (int a = 0; a < 3; ++a) {
    set.bbox[a] = raw.box.min[a];
    set.bbox[3 + a] = raw.box.max[a];
  }
  set.corners = std::move(raw.vrt);
  set.e0 = std::move(terms.u);
  set.e1 = std::move(terms.v);
  set.a = std::move(terms.uu);
  set.b = std::move(terms.uv);
  set.c = std::move(terms.vv);
  set.det = std::move(terms.det);
  set.den = std::move(terms.den);
  set.normal = std::move(terms.n);
  set.nnsq = std::move(terms.nn);
  return set;
}

}  // namespace wf

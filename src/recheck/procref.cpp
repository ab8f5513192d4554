// SPDX-License-Identifier: GPL-3.0-or-later
#include "recheck/procref.h"

#include <algorithm>

#include "base/memory.h"
#include "base/text.h"
#include "surface/readstl.h"

namespace wf {

QuerySet buildqueryset(Reporter &rep, const char *title, const std::string &file,
                       std::string &stlpath, int &byteorder) {
  rep.say(title);
  stlpath = rtrim(file);
  RawSurface raw = readstl(rep, stlpath, byteorder);
  rep.say("Calculating surface normals");
  const double box[6] = {raw.box.min[0], raw.box.min[1], raw.box.min[2],
                         raw.box.max[0], raw.box.max[1], raw.box.max[2]};
  QuerySet set = makequeryset(std::move(raw.vrt), raw.ntri, box);
  return set;
}

}  // namespace wf

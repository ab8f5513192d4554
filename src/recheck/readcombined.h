// SPDX-License-Identifier: GPL-3.0-or-later
// Combined geometry reader: every file of a list read raw (each with the repaired-sibling rule)
// and joined into one triangle soup, three columns per triangle across all files, with the
// first vertex and triangle of each file (1-based; one more entry for the totals plus one).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/reporter.h"
#include "surface/surfacemesh.h"

namespace wf {

struct CombinedParts {
  std::vector<int32_t> vrtstart, tristart;  // nfiles + 1 entries
};

// stlpath receives the name of each file as it is read (the last one stays). With more than
// one file the totals and the box are printed. An empty list without allowempty is message 47.
RawSurface readcombined(Reporter &rep, const std::vector<std::string> &files, bool allowempty,
                        std::string &stlpath, int &byteorder, CombinedParts *parts = nullptr);

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// An independent judge of a repaired surface, on CGAL's polygon mesh processing (it shares no code
// with the repair): what a printer asks of a solid, counted. Corners equal as floats are one
// vertex; facets travel as 9 floats each.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace wft {

struct Verdict {
  size_t facets = 0;
  bool manifold = false;  // every edge on at most two facets, no pinched vertex
  bool closed = false;    // every edge on exactly two facets
  bool oriented = false;  // the two facets of every edge run opposite ways
  size_t shells = 0;      // connected pieces
  size_t crossings = 0;   // pairs of facets that cross or overlap (capped at 1000)
  size_t zeroarea = 0;    // facets with collinear corners
  size_t newhits = 0;     // crossing pairs with a facet that is not in `before`
  double area = 0, volume = 0;
  bool printable() const { return manifold && closed && oriented && crossings == 0 && zeroarea == 0 && volume > 0; }
  std::string text() const;
};

// `before`, when given, is the surface the repair started from (for newhits).
Verdict judge(const std::vector<float> &facets, const std::vector<float> *before = nullptr);

}  // namespace wft

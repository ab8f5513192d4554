// SPDX-License-Identifier: GPL-3.0-or-later
// What a printer needs of a surface: closed, every edge on two facets running opposite ways,
// every corner with one fan of facets round it, an enclosed volume that is positive, no facet of
// zero area and no two facets crossing or touching other than along the edge or at the corner
// they share. Facets travel as 9 floats each; corners equal as floats are one point. The tests
// use exact predicates (CGAL), so a near miss is never taken for a crossing nor a crossing for a
// near miss.
#pragma once

#include <cstdint>

namespace wf {

struct SolidCheck {
  bool told = false;      // false: there are no facets
  bool closed = false;    // every edge on two facets
  bool oriented = false;  // the two facets of every edge run opposite ways
  bool onefan = false;    // every corner has one fan of facets round it
  int64_t zeroarea = 0;   // facets whose three corners lie on one line
  bool crossing = false;  // two facets cross or touch (told for closed, oriented surfaces only)
  int32_t shells = 0;     // connected pieces
  double volume = 0;      // signed enclosed volume (positive when facing outwards)
  bool printable() const { return told && closed && oriented && onefan && zeroarea == 0 && !crossing && volume > 0; }
};

// Checks n facets, every coordinate finite (as for makesolid). Throws std::bad_alloc when memory
// runs out.
SolidCheck checksolid(const float *xyz, int64_t n);

}  // namespace wf

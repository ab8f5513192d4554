// SPDX-License-Identifier: GPL-3.0-or-later
// Facets that cross: two facets cross when they have a point in common other than a corner or an
// edge they share (facets on one shared edge cross only when they lie in one plane on the same
// side of it; facets on one shared corner cross when an edge of one meets the other). Exact
// predicates (CGAL's filtered kernel), so a near miss is never a crossing nor a crossing a near
// miss. Facets whose corners lie on one line, or have a coordinate that is not finite, are no part
// of any pair (they are told apart).
//
// Corner numbers and facet numbers are 0-based. The pairs come out sorted, each as (lower,
// higher), whatever the number of threads.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace wf {

using Facet = std::array<int32_t, 3>;
using FacetPair = std::pair<int32_t, int32_t>;

// Every crossing pair among the facets. With `among` given (one flag per facet), only pairs with
// at least one flagged facet. Stops early, with whatever it found, once `limit` pairs are found
// (0: no limit): which pairs come back then depends on the threads, only whether none came back
// does not. Throws std::bad_alloc when memory runs out.
std::vector<FacetPair> crossingpairs(const std::vector<double> &points, const std::vector<Facet> &facets,
                                     const std::vector<char> *among = nullptr, size_t limit = 0);

// Whether the three corners lie on one line (exact).
bool collinearfacet(const std::vector<double> &points, const Facet &f);

}  // namespace wf

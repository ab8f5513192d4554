// SPDX-License-Identifier: GPL-3.0-or-later
// The CGAL kernel of the repair's tests and patches: exact predicates on the facets as given,
// points kept as doubles (every corner comes from a float, so the predicates decide exactly).
// The union (repair/unite.cpp) makes new points and uses exact constructions instead.
#pragma once

#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>

namespace wf::cgal {

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Point = Kernel::Point_3;
using Segment = Kernel::Segment_3;
using Triangle = Kernel::Triangle_3;

}  // namespace wf::cgal

// SPDX-License-Identifier: GPL-3.0-or-later
// An STL file read and, when it reads, prepared: snapping, merging and the edge checks meet
// whatever coordinates the file holds (NaN, infinities, huge and tiny values).
#pragma once

#include <string>

#include "fuzzcommon.h"
#include "surface/preparesurface.h"
#include "surface/readstl.h"

inline void fuzzprepare(wf::RawSurface &raw, const std::string &path) {
  wf::SurfaceMesh mesh;
  wf::EdgeTable edges;
  wf::preparesurface(fuzz::quiet(), raw, wf::Tolerances(), path, path, mesh, edges);
}

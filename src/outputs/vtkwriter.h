// SPDX-License-Identifier: GPL-3.0-or-later
// *OVTK: the warped surface as a legacy VTK unstructured grid of triangles with the displacement
// of each vertex as point vectors ("Displacement"). Binary form ('b', what a run writes): text
// lines ending in a line feed, raw big-endian blocks with nothing behind them; text form ('a'):
// 16-character scientific fields. Indexed: cells through the mesh's triangles (1-based numbers
// minus one); otherwise three points per triangle and no point data.
#pragma once

#include <string>
#include <vector>

#include "surface/surfacemesh.h"

namespace wf {

// Throws Fatal: 31, 200, 32.
void writevtk(const SurfaceMesh &mesh, const std::vector<float> &displacement,
              const std::string &path, char form, bool indexed);

// The name of the VTK file of an output: up to and including the last dot of the whole path,
// then "vtk" ("vtk" alone without a dot).
std::string vtkname(const std::string &outstlpath);

}  // namespace wf

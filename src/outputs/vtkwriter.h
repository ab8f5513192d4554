// SPDX-License-Identifier: GPL-3.0-or-later
// *OVTK: the warped surface as a legacy VTK unstructured grid of triangles with the displacement
// of each vertex as point vectors ("Displacement"), in binary: text lines ending in a line feed,
// raw big-endian blocks with nothing behind them; cells through the mesh's triangles (1-based
// numbers minus one).
#pragma once

#include <string>
#include <vector>

#include "base/folder.h"
#include "surface/surfacemesh.h"

namespace wf {

// The path is relative to `in` and named in the messages as given. Throws Fatal: 31, 200, 32.
void writevtk(const SurfaceMesh &mesh, const std::vector<float> &displacement, const std::string &path,
              const Folder &in = Folder());

// The name of the VTK file of an output: up to and including the last dot of the whole path,
// then "vtk" ("vtk" alone without a dot).
std::string vtkname(const std::string &outstlpath);

}  // namespace wf

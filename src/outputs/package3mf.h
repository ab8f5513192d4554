// SPDX-License-Identifier: GPL-3.0-or-later
// The coloured 3MF package: five members written into a folder "<stem>_color/" and zipped to
// "<stem>_color.3mf" through minizip; the vertices are coloured by the magnitude of their
// displacement on the surface's own scale, from blue (least) to red (most).
//
// Members, in the order written: 3D/3dmodel.model, _rels/.rels, 3D/_rels/3dmodel.model.rels,
// History/history.xml, [Content_Types].xml; zipped with the model last. Every member that
// cannot be opened reports the path of the model (message 31). A failed zip is no failure of
// the run: its status is returned (the caller reports it), and the members stay. Nothing here
// prints: write3mf tells a caller that reports the package (app/steps.h) when the model is
// written and each note of the zip.
//
// The model member is formatted in blocks of rows, side by side on the OpenMP threads, straight
// into its place in one buffer that holds the whole text; the file is written from that buffer
// while the other threads deflate it for the zip, so the member is never read back. The bytes do
// not depend on the number of threads. When the memory for the whole text cannot be had, the
// blocks go to the file through a bounded buffer and the zip reads the file back, as it does the
// small members.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/folder.h"
#include "outputs/deflate.h"
#include "outputs/zippackage.h"
#include "surface/surfacemesh.h"

namespace wf {

// The folder of the package of an output: the text before the last dot of the whole path, then
// "_color" ("_color" alone when the dot is missing or first).
std::string packagefolder(const std::string &outstlpath);

// Writes the model member: the colour group of 1021 entries, the vertices (16-character
// scientific fields) and the triangles (0-based corners and their colours). With `packed`, the
// text is also deflated as the zip stores it, when the memory for the whole text can be had;
// returns true when *packed holds it. The file is opened before anything is allocated. Throws
// Fatal 31 (naming `report`), 200 (naming `path`), 32. The path is relative to `in`.
bool writemodel(const SurfaceMesh &mesh, const std::vector<float> &dispsingle, const std::string &path,
                const std::string &report, Deflated *packed = nullptr, const Folder &in = Folder());

// The files of a package, as named to the caller (the package folder as given).
struct PackageFiles {
  std::string modelpath;  // "<folder>/3D/3dmodel.model"
  std::string zipname;    // "<folder>.3mf"
  int zipstatus = 0;      // what zippackage returned: 0 when the zip is made
};
// Told once the model member is written and closed, before the other members.
using PackageModelFn = std::function<void(const PackageFiles &sofar)>;

// The package: the folders, the members, the zip. onmodel and onzip, when given, are told the
// model written and the zip's notes. Throws what writemodel throws, and 31 (naming the model)
// for a member that cannot be opened. The package folder is relative to `in`; the names told
// and returned are as given.
PackageFiles write3mf(const SurfaceMesh &mesh, const std::vector<float> &dispsingle, const std::string &folder,
                      const PackageModelFn &onmodel = {}, const ZipNoteFn &onzip = {}, const Folder &in = Folder());

}  // namespace wf

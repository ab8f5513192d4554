// SPDX-License-Identifier: GPL-3.0-or-later
#include "recheck/recheck.h"

#include "base/text.h"
#include "recheck/readback.h"
#include "surface/normals.h"

namespace wf {

namespace {

constexpr size_t PATHFIELD = 8192;

}  // namespace

std::string recheckstep(Reporter &rep, const std::string &outstlpath,
                        const RecheckSettings &settings, std::string &stlpath, int &byteorder) {
  std::string entry = rtrim(outstlpath);
  RawSurface raw = readback(rep, entry, stlpath, byteorder);
  SurfaceMesh mesh;
  EdgeTable edges;
  // The warnings on watertightness name the output as given.
  const SurfaceCheck check = preparesurface(rep, raw, settings.tolerances, entry, stlpath, mesh, edges);
  if (check.status == 0) {
    rep.say("Calculating surface normals");
    std::vector<double> n;
    facetnormals(mesh.vrt.data(), static_cast<size_t>(mesh.nvrt), mesh.tri.data(), mesh.ntri, n);
  } else {
    // preparesurface has printed the warning on the non-manifold edges.
    mesh = SurfaceMesh();
    edges = EdgeTable();
    entry = sendtorepair(rep, entry, settings.repairtol, settings.tsre);
  }
  // Kept deliberately: the name comes back as a blank-padded field of 8192 characters, and the
  // pass hands it to the plain 3MF conversion as it stands: its extension carries the blanks,
  // the conversion ends in "unknown input file extension" (-5), and *TSRD with *O3MF writes no
  // plain 3MF file. [pinned: regression jobs tsrd_repair, tsrd_clean_istl]
  entry.resize(PATHFIELD, ' ');
  return entry;
}

}  // namespace wf

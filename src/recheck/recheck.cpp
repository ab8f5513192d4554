// SPDX-License-Identifier: GPL-3.0-or-later
#include "recheck/recheck.h"

#include "base/text.h"
#include "recheck/readcombined.h"
#include "surface/normals.h"

namespace wf {

namespace {

constexpr size_t PATHFIELD = 8192;

}  // namespace

void recheck(Reporter &rep, std::vector<RepairItem> &files, bool tolerate, bool checkorient,
             const RecheckSettings &settings, std::string &stlpath, int &byteorder) {
  std::vector<std::string> names;
  for (const RepairItem &f : files) names.push_back(f.file);
  RawSurface raw = readcombined(rep, names, true, stlpath, byteorder);
  SurfaceMesh mesh;
  EdgeTable edges;
  // The mesh is one surface, the first of the list, which the watertightness warnings name.
  const std::string surfacename = files.empty() ? rtrim(stlpath) : rtrim(files[0].file);
  const SurfaceCheck check =
      preparesurface(rep, raw, settings.tolerances, surfacename, stlpath, mesh, edges);
  if (check.status == 0) {
    rep.say("Calculating surface normals");
    std::vector<double> n;
    facetnormals(mesh.vrt.data(), static_cast<size_t>(mesh.nvrt), mesh.tri.data(), mesh.ntri, n);
    return;
  }
  // preparesurface has printed the warning on the non-manifold edges.
  for (RepairItem &f : files) {
    f.watertight = check.watertight;
    f.oriented = check.oriented;
  }
  mesh = SurfaceMesh();
  edges = EdgeTable();
  repairsurfaces(rep, files, tolerate, checkorient, settings.repairtol, settings.tsre);
}

std::string recheckstep(Reporter &rep, const std::string &outstlpath,
                        const RecheckSettings &settings, std::string &stlpath, int &byteorder) {
  std::vector<RepairItem> files(1);
  files[0].file = rtrim(outstlpath);
  files[0].watertight = false;
  files[0].type = 1;
  recheck(rep, files, true, false, settings, stlpath, byteorder);
  std::string entry = files[0].file;
  entry.resize(PATHFIELD, ' ');
  return entry;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// The repair component as the run's client calls it, on facets written to a file: the default
// repair, then, when asked and the result is still unsound, the extended repair on that result.
#pragma once

#include <string>

#include "repair/meshrepair.h"
#include "shapes.h"
#include "testutil.h"

namespace wft {

struct Repaired {
  Facets facets;  // as saved; empty when nothing was
  int sanebefore = -1, saneafter = -1;
  int status = -1;  // of the last repair run
};

inline Repaired repaircomponent(const Facets &s, bool extended, float tolerance = 0.01f) {
  Repaired r;
  const std::string dir = tempdir("component");
  writefile(dir + "/in.stl", binarystlbytes(s));
  wf::MeshRepairContext *context = nullptr;
  wf::meshrepair_initcontext(&context);
  wf::MeshRepairMesh *mesh = wf::meshrepair_loadstl(context, (dir + "/in.stl").c_str());
  if (mesh) {
    wf::meshrepair_issane(mesh, &r.sanebefore);
    r.status = wf::meshrepair_defaultrepair(mesh, tolerance);
    wf::meshrepair_issane(mesh, &r.saneafter);
    if (extended && r.status == 0 && r.saneafter == 0) {
      r.status = wf::meshrepair_extendedrepair(mesh, tolerance);
      wf::meshrepair_issane(mesh, &r.saneafter);
    }
    if (wf::meshrepair_savestl(mesh, (dir + "/out.stl").c_str(), 0) == 0)
      r.facets = binarystlfacets(readfile(dir + "/out.stl"));
  }
  wf::meshrepair_free(mesh);
  wf::meshrepair_freecontext(context);
  return r;
}

}  // namespace wft

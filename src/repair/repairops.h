// SPDX-License-Identifier: GPL-3.0-or-later
// The operation list that the repair client calls through. It holds the mesh-repair component's
// own functions; a test may put others in its place (and must put the originals back).
#pragma once

#include "repair/meshrepair.h"

namespace wf {

struct RepairOps {
  int (*getversion)();
  int (*initcontext)(MeshRepairContext **context);
  MeshRepairMesh *(*loadstl)(MeshRepairContext *context, const char *path);
  int (*facecount)(const MeshRepairMesh *mesh);
  int (*issane)(MeshRepairMesh *mesh, int *result);
  int (*defaultrepair)(MeshRepairMesh *mesh, float tolerance);
  int (*extendedrepair)(MeshRepairMesh *mesh, float tolerance);
  int (*savestl)(MeshRepairMesh *mesh, const char *path, int flags);
  void (*lasterror)(const MeshRepairContext *context, char *buffer, int size);
  void (*free)(MeshRepairMesh *mesh);
  void (*freecontext)(MeshRepairContext *context);
};

// The component's own list.
RepairOps componentops();
// The list in use (initially componentops()).
RepairOps &repairops();

}  // namespace wf

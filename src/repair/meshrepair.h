// SPDX-License-Identifier: GPL-3.0-or-later
// Mesh-repair component: load an STL, count faces, tell soundness, a default and an extended
// repair with a tolerance, save an STL, and the text of the last failure. A mesh is sound when it
// is printable (repair/solidcheck.h). Every call that returns an int returns 0 for success; a
// failure leaves its text in the context of the mesh (meshrepair_lasterror). Handles are opaque:
// one context, meshes in it.
#pragma once

namespace wf {

struct MeshRepairContext;
struct MeshRepairMesh;

// The version the component reports; the repair client accepts this one only.
constexpr int MESHREPAIR_VERSION = 2019;

// Failure statuses (any non-zero value is a failure).
constexpr int MESHREPAIR_EARG = 1;     // a null handle or argument
constexpr int MESHREPAIR_EIO = 2;      // a file could not be read or written
constexpr int MESHREPAIR_EFORMAT = 3;  // not an STL, or unusable coordinates
constexpr int MESHREPAIR_EEMPTY = 4;   // the mesh has no facets
constexpr int MESHREPAIR_ENOMEM = 5;   // out of memory
constexpr int MESHREPAIR_EREPAIR = 6;  // a repair pass failed (crash, time or memory limit)

int meshrepair_getversion();
// Sets *context to a fresh context.
int meshrepair_initcontext(MeshRepairContext **context);
// Reads a binary (either byte order) or ASCII STL; null on failure, with the reason as last error.
MeshRepairMesh *meshrepair_loadstl(MeshRepairContext *context, const char *path);
int meshrepair_facecount(const MeshRepairMesh *mesh);
// *result becomes 1 for a sound mesh, 0 otherwise.
int meshrepair_issane(MeshRepairMesh *mesh, int *result);
// Cracks within the tolerance merged (admesh's exact and nearby checks), then the solid repair of
// repair/solidrepair.h without the union of crossing pieces.
int meshrepair_defaultrepair(MeshRepairMesh *mesh, float tolerance);
// Up to eight further passes, each with twice the tolerance of the one before (never above 1% of
// the part's diagonal): the nearby merge, then the solid repair with the union of crossing
// pieces. Stops at a sound mesh, and after a pass that changed nothing.
int meshrepair_extendedrepair(MeshRepairMesh *mesh, float tolerance);
// flags 0: binary little-endian STL with computed normals (the only form offered).
int meshrepair_savestl(MeshRepairMesh *mesh, const char *path, int flags);
// The text of the last failure in the context, cut to size - 1 characters and NUL-terminated.
void meshrepair_lasterror(const MeshRepairContext *context, char *buffer, int size);
void meshrepair_free(MeshRepairMesh *mesh);
void meshrepair_freecontext(MeshRepairContext *context);

}  // namespace wf

// SPDX-License-Identifier: GPL-2.0-or-later
// Repair client: sends surfaces that failed the check through the mesh-repair component and puts
// "<stem>_ls_repair.stl" in their place in stlfiles, repaired or not. Every console line of a
// repair goes to standard output at once (sayraw and a flush); numbers go through conint, so
// they follow the console's hexadecimal mode.
#include "repair/repairclient.h"

#include <cstdio>
#include <string>

#include "control/messages.h"
#include "repair/repairops.h"

namespace wf {

RepairOps componentops() {
  return RepairOps{meshrepair_getversion, meshrepair_initcontext, meshrepair_loadstl,
                   meshrepair_facecount,  meshrepair_issane,      meshrepair_defaultrepair,
                   meshrepair_extendedrepair, meshrepair_savestl, meshrepair_lasterror,
                   meshrepair_free,       meshrepair_freecontext};
}

RepairOps &repairops() {
  static RepairOps ops = componentops();
  return ops;
}

namespace {

// What a failed step of repairsurface leaves with; the one handler prints it.
struct RepairFailure {
  std::string text;
};

void line(RunState &rs, const std::string &text) {
  rs.rep.raw(text);
}

// Releases the mesh and the context on every way out of repairsurface.
struct Handles {
  const RepairOps &ops;
  MeshRepairContext *context = nullptr;
  MeshRepairMesh *mesh = nullptr;
  explicit Handles(const RepairOps &o) : ops(o) {}
  ~Handles() {
    if (mesh && ops.free) ops.free(mesh);
    if (context && ops.freecontext) ops.freecontext(context);
  }
  Handles(const Handles &) = delete;
  Handles &operator=(const Handles &) = delete;
};

std::string lasterrortext(const RepairOps &ops, MeshRepairContext *context) {
  char buffer[256] = {0};
  ops.lasterror(context, buffer, int(sizeof buffer));
  buffer[sizeof buffer - 1] = '\0';
  return buffer;
}

}  // namespace

int repairsurface(RunState &rs, const std::string &infile, const std::string &outfile,
                  const double &tolerance, const int &extended) {
  const RepairOps ops = repairops();
  Handles h(ops);
  try {
    line(rs, "Starting Tessero default repair...");
    line(rs, "infile = " + infile);
    line(rs, "outfile = " + outfile);

    int version = ops.getversion();
    line(rs, "Version " + rs.rep.integer(version));
    if (version != MESHREPAIR_VERSION) throw RepairFailure{"invalid version"};

    int status = ops.initcontext(&h.context);
    if (status != 0) {
      char text[64];
      std::snprintf(text, sizeof text, "could not init dll: %d", status);
      throw RepairFailure{text};
    }
    if (!h.context) throw RepairFailure{"no context"};

    line(rs, "Loading mesh...");
    h.mesh = ops.loadstl(h.context, infile.c_str());
    if (!h.mesh) throw RepairFailure{lasterrortext(ops, h.context)};
    line(rs, "facecount: " + rs.rep.integer(ops.facecount(h.mesh)));

    int sane = 0;
    if (ops.issane(h.mesh, &sane) != 0) throw RepairFailure{lasterrortext(ops, h.context)};
    line(rs, "Status: " + rs.rep.integer(sane));

    char tol[64];
    std::snprintf(tol, sizeof tol, "%g", tolerance);
    line(rs, std::string("Repairing mesh with tolerance ") + tol + " ...");
    const float tolsingle = static_cast<float>(tolerance);
    if (ops.defaultrepair(h.mesh, tolsingle) != 0)
      throw RepairFailure{lasterrortext(ops, h.context)};
    line(rs, "facecount: " + rs.rep.integer(ops.facecount(h.mesh)));

    sane = 0;
    status = ops.issane(h.mesh, &sane);
    line(rs, "Status: " + rs.rep.integer(sane));
    if (status != 0) throw RepairFailure{lasterrortext(ops, h.context)};

    if (sane == 0) {
      if ((extended & 0xff) == 0) {
        line(rs, "Repair failed.");
        return -3;
      }
      line(rs, "Default repair failed.  Trying extended repair...");
      if (ops.extendedrepair(h.mesh, tolsingle) != 0)
        throw RepairFailure{lasterrortext(ops, h.context)};
      sane = 0;
      ops.issane(h.mesh, &sane);
      line(rs, "Status: " + rs.rep.integer(sane));
      if (sane == 0) {
        line(rs, "Repair failed.");
        return -3;
      }
    }

    line(rs, "Saving repaired STL...");
    if (ops.savestl(h.mesh, outfile.c_str(), 0) != 0)
      throw RepairFailure{lasterrortext(ops, h.context)};
    ops.free(h.mesh);
    h.mesh = nullptr;
    ops.freecontext(h.context);
    h.context = nullptr;
    line(rs, "Finished repair");
    return 0;
  } catch (const RepairFailure &failure) {
    line(rs, "fatal error: " + failure.text);
    return -1;
  }
}

void repairsurfaces(RunState &rs, bool tolerate, bool checkorient) {
  bool failed = false;
  for (int32_t i = 0; i < rs.stlfiles.n; ++i) {
    const size_t k = size_t(i);
    const bool watertight = k < rs.surfwatertight.size() && rs.surfwatertight[k] != 0;
    if (watertight) {
      if (!checkorient) continue;
      if (k < rs.surforiented.size() && rs.surforiented[k] != 0) continue;
    }
    const std::string infile = rtrim(rs.stlfiles[k]);
    const std::string outfile =
        (fileexists(infile) ? rtrim(stripext(infile)) : infile) + "_ls_repair.stl";
    const int extended = (rs.tsreflag || (i < rs.stltype.n && rs.stltype[k] == 3)) ? 1 : 0;
    const int status = repairsurface(rs, infile, outfile, rs.repairtol, extended);
    if (status != 0) {
      rs.rep.post(2, 1011, {infile});
      failed = true;
    }
    rs.stlfiles[k] = outfile;
  }
  if (failed && !tolerate) {
    rs.rep.post(1, 46);
    fatalsilent();
  }
}

}  // namespace wf

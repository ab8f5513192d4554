// SPDX-License-Identifier: GPL-3.0-or-later
// Repair client: sends surfaces that failed the check through the mesh-repair component and puts
// "<stem>_ls_repair.stl" in their place, repaired or not.
#include "repair/repairclient.h"

#include <cstdio>
#include <string>

#include "base/fatal.h"
#include "base/text.h"
#include "repair/meshrepair.h"

namespace wf {

namespace {

// What a failed step of repairsurface leaves with; the one handler prints it.
struct RepairFailure {
  std::string text;
};

void line(Reporter &rep, const std::string &text) { rep.raw(text); }

// Releases the mesh and the context on every way out of repairsurface.
struct Handles {
  MeshRepairContext *context = nullptr;
  MeshRepairMesh *mesh = nullptr;
  Handles() = default;
  ~Handles() {
    if (mesh) meshrepair_free(mesh);
    if (context) meshrepair_freecontext(context);
  }
  Handles(const Handles &) = delete;
  Handles &operator=(const Handles &) = delete;
};

std::string lasterrortext(MeshRepairContext *context) {
  char buffer[256] = {0};
  meshrepair_lasterror(context, buffer, int(sizeof buffer));
  buffer[sizeof buffer - 1] = '\0';
  return buffer;
}

// The component names, in quotes, the path it was handed, which reaches below the run's folder;
// the run's lines name the file as the job gives it.
std::string asgiven(std::string text, const std::string &opened, const std::string &given) {
  if (opened == given) return text;
  const std::string from = "'" + opened + "'", to = "'" + given + "'";
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

}  // namespace

int repairsurface(Reporter &rep, const std::string &infile, const std::string &outfile, const double &tolerance,
                  const int &extended, const Folder &in) {
  Handles h;
  const std::string inopened = in.at(infile), outopened = in.at(outfile);
  try {
    line(rep, "Starting Tessero default repair...");
    line(rep, "infile = " + infile);
    line(rep, "outfile = " + outfile);

    int version = meshrepair_getversion();
    line(rep, "Version " + rep.integer(version));
    if (version != MESHREPAIR_VERSION) throw RepairFailure{"invalid version"};

    int status = meshrepair_initcontext(&h.context);
    if (status != 0) {
      char text[64];
      std::snprintf(text, sizeof text, "could not init dll: %d", status);
      throw RepairFailure{text};
    }
    if (!h.context) throw RepairFailure{"no context"};

    line(rep, "Loading mesh...");
    h.mesh = meshrepair_loadstl(h.context, inopened.c_str());
    if (!h.mesh) throw RepairFailure{asgiven(lasterrortext(h.context), inopened, infile)};
    line(rep, "facecount: " + rep.integer(meshrepair_facecount(h.mesh)));

    int sane = 0;
    if (meshrepair_issane(h.mesh, &sane) != 0) throw RepairFailure{lasterrortext(h.context)};
    line(rep, "Status: " + rep.integer(sane));

    char tol[64];
    std::snprintf(tol, sizeof tol, "%g", tolerance);
    line(rep, std::string("Repairing mesh with tolerance ") + tol + " ...");
    const float tolsingle = static_cast<float>(tolerance);
    if (meshrepair_defaultrepair(h.mesh, tolsingle) != 0) throw RepairFailure{lasterrortext(h.context)};
    line(rep, "facecount: " + rep.integer(meshrepair_facecount(h.mesh)));

    sane = 0;
    status = meshrepair_issane(h.mesh, &sane);
    line(rep, "Status: " + rep.integer(sane));
    if (status != 0) throw RepairFailure{lasterrortext(h.context)};

    if (sane == 0) {
      if ((extended & 0xff) == 0) {
        line(rep, "Repair failed.");
        return -3;
      }
      line(rep, "Default repair failed.  Trying extended repair...");
      if (meshrepair_extendedrepair(h.mesh, tolsingle) != 0) throw RepairFailure{lasterrortext(h.context)};
      sane = 0;
      meshrepair_issane(h.mesh, &sane);
      line(rep, "Status: " + rep.integer(sane));
      if (sane == 0) {
        line(rep, "Repair failed.");
        return -3;
      }
    }

    line(rep, "Saving repaired STL...");
    if (meshrepair_savestl(h.mesh, outopened.c_str(), 0) != 0)
      throw RepairFailure{asgiven(lasterrortext(h.context), outopened, outfile)};
    meshrepair_free(h.mesh);
    h.mesh = nullptr;
    meshrepair_freecontext(h.context);
    h.context = nullptr;
    line(rep, "Finished repair");
    return 0;
  } catch (const RepairFailure &failure) {
    line(rep, "fatal error: " + failure.text);
    return -1;
  }
}

std::string sendtorepair(Reporter &rep, const std::string &file, double tolerance, bool tsre, const Folder &in) {
  const std::string infile = rtrim(file);
  const std::string outfile = repairoutputname(infile, in);
  if (repairsurface(rep, infile, outfile, tolerance, tsre ? 1 : 0, in) != 0)
    rep.post(Severity::critical, 1011, {infile});
  return outfile;
}

}  // namespace wf

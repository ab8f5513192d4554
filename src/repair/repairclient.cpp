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

// What a failed step of repairsurface leaves with; the one handler tells it.
struct RepairFailure {
  std::string text;
};

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

RepairRun repairsurface(const std::string &infile, const std::string &outfile, double tolerance, bool extended,
                        const RepairStageFn &onstage, const Folder &in) {
  Handles h;
  RepairRun run;
  run.infile = infile;
  run.outfile = outfile;
  const auto tell = [&](RepairStage stage) {
    if (onstage) onstage(stage, run);
  };
  // Asks the component whether the mesh is sound; true when it could answer.
  const auto asksane = [&] {
    run.sane = 0;
    return meshrepair_issane(h.mesh, &run.sane) == 0;
  };
  const std::string inopened = in.at(infile), outopened = in.at(outfile);
  try {
    tell(RepairStage::start);

    run.version = meshrepair_getversion();
    tell(RepairStage::version);
    if (run.version != MESHREPAIR_VERSION) throw RepairFailure{"invalid version"};

    int status = meshrepair_initcontext(&h.context);
    if (status != 0) {
      char text[64];
      std::snprintf(text, sizeof text, "could not init dll: %d", status);
      throw RepairFailure{text};
    }
    if (!h.context) throw RepairFailure{"no context"};

    tell(RepairStage::loading);
    h.mesh = meshrepair_loadstl(h.context, inopened.c_str());
    if (!h.mesh) throw RepairFailure{asgiven(lasterrortext(h.context), inopened, infile)};
    run.facecount = meshrepair_facecount(h.mesh);
    tell(RepairStage::faces);

    if (!asksane()) throw RepairFailure{lasterrortext(h.context)};
    tell(RepairStage::sanity);

    tell(RepairStage::repairing);
    const float tolsingle = static_cast<float>(tolerance);
    if (meshrepair_defaultrepair(h.mesh, tolsingle) != 0) throw RepairFailure{lasterrortext(h.context)};
    run.facecount = meshrepair_facecount(h.mesh);
    tell(RepairStage::faces);

    // The verdict is told before an error of the question is.
    const bool answered = asksane();
    tell(RepairStage::sanity);
    if (!answered) throw RepairFailure{lasterrortext(h.context)};

    if (run.sane == 0) {
      if (!extended) {
        run.status = -3;
        tell(RepairStage::unsound);
        return run;
      }
      tell(RepairStage::extended);
      if (meshrepair_extendedrepair(h.mesh, tolsingle) != 0) throw RepairFailure{lasterrortext(h.context)};
      asksane();
      tell(RepairStage::sanity);
      if (run.sane == 0) {
        run.status = -3;
        tell(RepairStage::unsound);
        return run;
      }
    }

    tell(RepairStage::saving);
    if (meshrepair_savestl(h.mesh, outopened.c_str(), 0) != 0)
      throw RepairFailure{asgiven(lasterrortext(h.context), outopened, outfile)};
    meshrepair_free(h.mesh);
    h.mesh = nullptr;
    meshrepair_freecontext(h.context);
    h.context = nullptr;
    tell(RepairStage::finished);
    return run;
  } catch (const RepairFailure &failure) {
    run.status = -1;
    run.failure = failure.text;
    tell(RepairStage::error);
    return run;
  }
}

RepairRun sendtorepair(const std::string &file, double tolerance, bool tsre, const RepairStageFn &onstage,
                       const Folder &in) {
  const std::string infile = rtrim(file);
  return repairsurface(infile, repairoutputname(infile, in), tolerance, tsre, onstage, in);
}

}  // namespace wf

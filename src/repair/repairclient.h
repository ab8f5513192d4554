// SPDX-License-Identifier: GPL-3.0-or-later
// Repair client: each surface that failed the check is sent through the mesh-repair component,
// which writes "<stem>_ls_repair.stl"; the surface's entry names that file afterwards, repaired
// or not. Nothing here prints: the repair tells a caller that reports it (app/steps.h) each
// stage as it comes, with the component's numbers as they are (the console prints them in its
// number mode); a failed repair is returned, and the caller makes it critical warning 1011.
#pragma once

#include <functional>
#include <string>

#include "base/folder.h"

namespace wf {

// What a repair has done so far. The files are named as given.
struct RepairRun {
  std::string infile, outfile;
  int status = 0;       // 0 success, -1 an error of the repair component, -3 the mesh stays unsound
  int version = 0;      // the component's version
  int facecount = 0;    // the mesh's faces, as last counted
  int sane = 0;         // the component's verdict on the mesh, as last asked (1 sound)
  std::string failure;  // the component's words on its error (status -1)
};

// The moments of a repair, in this order: start; version (known); loading; faces (counted
// after the load); sanity (asked); repairing (the default repair, with the tolerance given);
// faces; sanity; then, with the mesh unsound: unsound (the end without the extended repair), or
// extended, sanity and unsound when it stays so; then saving and finished. An error of the
// component ends the repair at any stage after start (error: failure holds its words).
enum class RepairStage {
  start,
  version,
  loading,
  faces,
  sanity,
  repairing,
  extended,
  unsound,
  saving,
  finished,
  error
};
using RepairStageFn = std::function<void(RepairStage stage, const RepairRun &sofar)>;

// The surface that failed its check sent through the component (tsre asks for the extended
// repair as well); returns the repair with outfile, "<stem>_ls_repair.stl" (the stem when the
// file exists, else the whole name), which stands for the surface afterwards whether or not the
// repair succeeded (status 0). onstage, when given, is told each stage. The file (trailing
// blanks cut) and its repaired name are relative to `in`; the run names them as given.
RepairRun sendtorepair(const std::string &file, double tolerance, bool tsre, const RepairStageFn &onstage = {},
                       const Folder &in = Folder());
// The repair of infile into outfile; extended asks for the extended repair when the default one
// leaves the mesh unsound. Returns the repair as told to onstage.
RepairRun repairsurface(const std::string &infile, const std::string &outfile, double tolerance, bool extended,
                        const RepairStageFn &onstage = {}, const Folder &in = Folder());

}  // namespace wf

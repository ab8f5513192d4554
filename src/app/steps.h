// SPDX-License-Identifier: GPL-3.0-or-later
// The steps of the run that print, those of the job's inputs and those of a surface: each calls the algorithms below
// (which return what they found and never print) and says the run's lines from their results, at the moments the
// algorithms tell (their stage callbacks). Read top to bottom, a step is what the console shows.
// A fatal condition throws Fatal, as the algorithms do; only main catches it.
#pragma once

#include <string>
#include <vector>

#include "base/reporter.h"
#include "control/settings.h"
#include "outputs/convert3mf.h"
#include "outputs/package3mf.h"
#include "outputs/zippackage.h"
#include "recheck/readback.h"
#include "repair/repairclient.h"
#include "simresults/readcase.h"
#include "simresults/simulation.h"
#include "surface/preparesurface.h"
#include "surface/readstl.h"
#include "warp/closestpoint.h"
#include "warp/nodegrid.h"
#include "warp/warpstl.h"

namespace wf {

// The control deck (control/deck.h) with its lines: the banner and build, the signal stream
// moved beside the deck, "Processing", the parse's notes as they come, "Finished reading", the
// echo, and the validation's lines and faults (errors) in order; a bad deck then ends the run
// (Fatal with code 0) after every fault has been posted. Settings start from their defaults.
// Throws what deckpaths and readcards throw.
void readdeckstep(Reporter &rep, const std::vector<std::string> &args, Settings &settings, JobFiles &files);

// The solver input file (control/solverinput.h): "Reading input file" once it is open, and when
// it was read (with *INPU) the STL scaling factor and a blank line. Throws what readsolverinput
// throws.
void solverinputstep(Reporter &rep, const Settings &settings, JobFiles &files);

// The choice of the surfaces (control/solverinput.h), a surface dropped from a whole-job run
// posted as critical warning 1036 or 1037 as it is found. Throws what selectsurfaces throws.
void selectsurfacesstep(Reporter &rep, const Settings &settings, int32_t ninc, JobFiles &files);

// The case file (simresults/readcase.h): a missing case file and the look for the cloud
// descriptor, the file read, and each time set's count and numbering (numbers in the console's
// number mode). Throws what readcase throws.
CaseInfo readcasestep(Reporter &rep, const std::string &path, const Folder &in = Folder());

// The mesh of the run (simresults/readgeo.h): "Mesh file" naming it, then the read into sim.
// Throws what meshfilename and readgeofile throw.
void readmeshstep(Reporter &rep, const CaseInfo &info, const std::string &casestem, int meshfilenumber, Simulation &sim,
                  const Folder &in = Folder());

// The displacements (simresults/readvariable.h): "Variable file" naming dispfile (trailing
// blanks cut), then its three components into sim.nodedisp. Throws what readvariablefile throws.
void readdisplacementstep(Reporter &rep, const std::string &dispfile, Simulation &sim, const Folder &in = Folder());

// The node grid of the simulation: its layout, the line of its partitions, the nodes filed.
// Throws what filenodes throws (32).
NodeGrid nodegridstep(Reporter &rep, const Simulation &sim);

// The read of one surface: "Reading", the repaired sibling taken, the byte orders tried, the
// form, the box and the counts. The read starts from memory's byte order, and memory takes the
// file read (`file` or its repaired sibling) and the order to remember as soon as the read
// knows them. The file is looked for in `in` and named as given.
// Throws what readstl throws (130, 131 and the attempts' messages).
RawSurface readstlstep(Reporter &rep, const std::string &file, StlMemory &memory, const Folder &in = Folder());

// The preparation of a soup with its console lines: the tolerance (and its warning when
// raised), the merge, the edges with the warnings on watertightness (naming `surfacename`)
// and on orientation (naming `stlpath`). The soup is consumed. Throws Fatal 32.
PreparedSurface preparesurfacestep(Reporter &rep, RawSurface &raw, const Tolerances &rules,
                                   const std::string &surfacename, const std::string &stlpath);

// A reference or scanned geometry as a query set: the title line, the read of `file` (trailing
// blanks cut; memory and `in` as for readstlstep), "Calculating surface normals", and the set.
// Throws what the read throws.
QuerySet querysetstep(Reporter &rep, const char *title, const std::string &file, StlMemory &memory,
                      const Folder &in = Folder());

// The read-back of a written surface for its check: a blank line, the read of `file` (trailing
// blanks cut; memory and `in` as for readstlstep) and the box of the read-back
// (recheck/readback.h).
RawSurface readbackstep(Reporter &rep, const std::string &file, StlMemory &memory, const Folder &in = Folder());

// The warp of a prepared surface (warp/warpstl.h) with its console lines: the warning on the
// number of averaged nodes, "Displacing original STL vertices ...", "Refining STL edges ...",
// the refinement's progress, the counts of triangles and the number of vertices. Throws what
// warpstl throws (174, 32).
void warpstep(Reporter &rep, const WarpField &field, bool nodecheck, double refminz, const WarpScales &scales,
              const RefineParams &refine, SurfaceMesh &mesh, EdgeTable &edges);

// The console line of one note of the zip: "zip:  " and its words, statuses in the console's
// number mode, a member's size always in decimal.
void zipline(Reporter &rep, const ZipNote &note);

// The coloured 3MF package of a surface (outputs/package3mf.h) with its console lines and
// signal events: the model member finished, the zip's lines ("zip:  ", statuses in the
// console's number mode) and the package finished, or "ERROR zipping" when the zip failed (no
// failure of the run). The package folder is relative to `in`; the lines and events name it as
// given. Throws what write3mf throws (31, 200, 32).
void package3mfstep(Reporter &rep, const SurfaceMesh &mesh, const std::vector<float> &dispsingle,
                    const std::string &folder, const Folder &in = Folder());

// The line of a conversion that failed (its status, with lib3MF's status in hexadecimal, which
// switches the console's integers to hexadecimal for good).
void conversionfailure(Reporter &rep, const Conversion &c);

// The plain 3MF file of an output (*O3MF, outputs/convert3mf.h) with the converter's lines and,
// when it fails, its status line (a lib3MF status in hexadecimal, which switches the console's
// integers to hexadecimal for good) and the warning that the conversion was not successful.
// Returns the conversion's status; never throws. The output is taken as it stands, blanks and
// all, relative to `in`.
int plain3mfstep(Reporter &rep, const std::string &outstlpath, const Folder &in = Folder());

// A surface sent to repair (repair/repairclient.h) with the repair's lines, its numbers in the
// console's number mode; a failed repair is critical warning 1011 naming the file (trailing
// blanks cut). Returns the repaired file's name, which stands for the surface whether or not
// the repair succeeded. The file and its repaired name are relative to `in`.
std::string repairstep(Reporter &rep, const std::string &file, double tolerance, bool tsre,
                       const Folder &in = Folder());

struct RecheckSettings {
  Tolerances tolerances;
  double repairtol = 0.01;
  bool tsre = false;
};

// The post-warp check (*TSRD): the output file read back and prepared; a clean surface gets its
// normals (nothing reads them further), any other goes to repair. Returns the file that stands
// for the output afterwards as a blank-padded field of 8192 characters (the output, or the
// repaired file whether or not the repair succeeded: the padding is what the rest of the pass
// compares with, so a repaired output is not converted to the plain package). memory is that of
// the reads; the output and its repair are relative to `in`.
std::string recheckstep(Reporter &rep, const std::string &outstlpath, const RecheckSettings &settings,
                        StlMemory &memory, const Folder &in = Folder());

}  // namespace wf

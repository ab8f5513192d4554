// SPDX-License-Identifier: GPL-2.0-or-later
// The run: initialisation, the load of the simulation, the surface loop, the finish event.
#include "control/run.h"

#include <xmmintrin.h>

#include <cmath>
#include <filesystem>

#include "control/deck.h"
#include "control/messages.h"
#include "control/settings.h"
#include "control/solverinput.h"
#include "outputs/convert3mf.h"
#include "outputs/package3mf.h"
#include "outputs/textreport.h"
#include "outputs/vtkwriter.h"
#include "recheck/procref.h"
#include "recheck/recheck.h"
#include "simresults/readcase.h"
#include "simresults/readgeo.h"
#include "simresults/readvariable.h"
#include "surface/normals.h"
#include "surface/readstl.h"
#include "surface/preparesurface.h"
#include "surface/surfacemesh.h"
#include "surface/writestl.h"
#include "warp/initgrid.h"
#include "warp/warpstl.h"

namespace fs = std::filesystem;

namespace wf {

void setfpmode() { _mm_setcsr(_mm_getcsr() | 0x8040); }

namespace {

// Changes the current folder; an empty name stays where it is, and a failure is not fatal:
// the next open of a file reports what is missing.
void changefolder(const std::string &folder) {
  if (folder.empty()) return;
  std::error_code ec;
  fs::current_path(folder, ec);
}

}  // namespace

void splitpath(const std::string &path, std::string &drive, std::string &folder, std::string &name,
               std::string &ext) {
  drive.clear();
  size_t slash = path.find_last_of('/');
  size_t start = slash == std::string::npos ? 0 : slash + 1;
  folder = path.substr(0, start);
  std::string file = path.substr(start);
  size_t dot = file.find_last_of('.');
  if (dot == std::string::npos) {
    name = file;
    ext.clear();
  } else {
    name = file.substr(0, dot);
    ext = file.substr(dot);
  }
}

void initrun(RunState &rs) {
  loadsettings(rs);
  rs.rep.opensignal();
  readdeck(rs);
  rs.snaptolsq = rs.snaptol * rs.snaptol;
  rs.refinetolsq = rs.refinetol * rs.refinetol;
  readsolverinput(rs);
  if (rs.inpuflag) rs.casestem = rs.inputfile;
  if (!rs.caseflag) rs.casefile = rtrim(rs.casestem) + ".case";
  rs.inputfolder = ".";
  if (rs.inpuflag) {
    // Both folders are fixed against the folder the run started in, so that the change to the
    // case folder does not move the meaning of a relative input folder.
    std::error_code ec;
    fs::path start = fs::current_path(ec);
    std::string drive, folder, name, ext;
    splitpath(rtrim(rs.inputfile), drive, folder, name, ext);
    rs.inputfolder = (start / (drive + folder)).lexically_normal().string();
    splitpath(rtrim(rs.casefile), drive, folder, name, ext);
    rs.casestem = name;
    rs.casefile = name + ext;
    rs.casefolder = drive + folder;
    changefolder(rs.casefolder);
    readcase(rs, rs.casefile);
    selectincrement(rs);
  }
  selectsurfaces(rs);
  if (rs.inpuflag) {
    rs.dispfile = rtrim(findresultfile(rs, "results/" + rtrim(rs.casestem) + "00_",
                                       rs.resultfilenumber, ".dis.ens"));
  }
  rs.halfexponent = 0.5 * rs.avgexponent;
}

void marknodes(RunState &rs) {
  rs.nodeactive.assign(static_cast<size_t>(rs.nnodes), 0);
  size_t nconn = static_cast<size_t>(rs.nelems) * 8;
  for (size_t k = 0; k < nconn && k < rs.elemconn.size(); ++k) {
    int32_t n = rs.elemconn[k];
    if (n >= 1 && n <= rs.nnodes) rs.nodeactive[static_cast<size_t>(n - 1)] = 255;
  }
}

void loadsimulation(RunState &rs) {
  readgeo(rs, ".geo");
  marknodes(rs);
  initgrid(rs);
  readvariable(rs, 3);
}

void surfacenames(RunState &rs, int i) {
  rs.progressbase = static_cast<int32_t>(std::lround(99.0 * (i - 1) / rs.nsurfaces));
  rs.progressshare = 1.0 / rs.nsurfaces;
  rs.curstlid = rs.stlids[static_cast<size_t>(i - 1)];
  if (rs.outpflag)
    rs.outstlpath = rtrim(rs.outfiles[static_cast<size_t>(i - 1)]);
  else
    rs.outstlpath = rtrim(rs.inputfile) + "_" + std::to_string(i) + "_warp.stl";
  std::string copy = rs.outstlpath;
  if (fileexists(copy)) copy = stripext(copy);
  rs.wrtupath = rtrim(copy) + "_wrtu.txt";
  std::string out = rtrim(rs.outstlpath);
  for (int j = 0; j < rs.stlfiles.n; ++j) {
    if (rtrim(rs.stlfiles[static_cast<size_t>(j)]) == out) {
      rs.rep.post(1, 193, {out});
      fatalsilent();
    }
  }
  int found = 0;
  bool have = false;
  for (int j = 1; j <= rs.stlfiles.n; ++j) {
    if (surfaceselected(rs, j)) {
      ++found;
      if (found == rs.curstlid) {
        rs.stlpath = rtrim(rs.stlfiles[static_cast<size_t>(j - 1)]);
        have = true;
        break;
      }
    }
  }
  if (!have) {
    // The list no longer holds the surface of this ID.
    rs.rep.post(1, 197, {std::to_string(rs.curstlid)});
    fatalsilent();
  }
  rs.rep.say("STL file = " + rs.stlpath);
  changefolder(rs.inputfolder);
}

void freesurface(RunState &rs) {
  rs.raw = RawSurface();
  rs.mesh = SurfaceMesh();
  rs.edges = EdgeTable();
  release(rs.nrgtri);
  release(rs.triactive);
  rs.vrtcap = rs.tricap = 0;
}

void finishsurface(RunState &rs) {
  rs.rep.blank();
  rs.rep.say("Finished writing file " + rtrim(rs.outstlpath));
  rs.rep.blank();
  rs.rep.say("CPU wall = " + walltext(rs.rep.wallseconds()));
  rs.rep.blank();
}

int runwarpforge(RunState &rs) {
  setfpmode();
  initrun(rs);
  if (!rs.scngflag) loadsimulation(rs);
  procref(rs);
  procscn(rs);
  const int n = rs.nsurfaces;
  for (int i = 1; i <= n; ++i) {
    surfacenames(rs, i);
    rs.raw = readstl(rs.rep, rs.stlpath, rs.stlbyteorder, false);
    // The watertightness warnings name the surface by its ID in the job's list.
    const std::string surfacename =
        rs.curstlid >= 1 && rs.curstlid <= rs.stlfiles.n
            ? rtrim(rs.stlfiles[static_cast<size_t>(rs.curstlid - 1)])
            : rtrim(rs.stlpath);
    const Tolerances rules{rs.reltoledge, rs.reltolbox, rs.tolbyedge, rs.tolbybox};
    rs.check = preparesurface(rs.rep, rs.raw, rules, surfacename, rs.stlpath, rs.mesh, rs.edges);
    warpstl(rs);
    rs.rep.say("Calculating surface normals");
    facetnormals(rs.mesh.vrt.data(), static_cast<size_t>(rs.mesh.nvrt), rs.mesh.tri.data(),
                 rs.mesh.ntri, rs.nrgtri);
    const std::string out = rtrim(rs.outstlpath);
    writestl(rs.mesh, &rs.nrgtri, out, rs.stlformat);
    if (rs.stlformat == 'b') rs.rep.say("Finished writing binary STL file " + out);
    writetextreport(rs);
    writevtkstep(rs);
    write3mfstep(rs);
    freesurface(rs);
    if (rs.tsrdflag) {
      const RecheckSettings settings{rules, rs.repairtol, rs.tsreflag};
      rs.outstlpath = recheckstep(rs.rep, rs.outstlpath, settings, rs.stlpath, rs.stlbyteorder);
    }
    convert3mfstep(rs);
    finishsurface(rs);
  }
  rs.rep.finish(1);
  return 0;
}

}  // namespace wf

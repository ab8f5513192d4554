// SPDX-License-Identifier: GPL-2.0-or-later
// The run: initialisation, the load of the simulation, the surface loop, the finish event.
#include "control/run.h"

#include <cmath>
#include <filesystem>

#include "control/deck.h"
#include "control/messages.h"
#include "control/catalogue.h"
#include "control/solverinput.h"
#include "outputs/convert3mf.h"
#include "outputs/outcommon.h"
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
#include "warp/nodegrid.h"
#include "warp/warpstl.h"

namespace fs = std::filesystem;

namespace wf {

namespace {

// Changes the current folder; an empty name stays where it is, and a failure is not fatal:
// the next open of a file reports what is missing.
void changefolder(const std::string &folder) {
  if (folder.empty()) return;
  std::error_code ec;
  fs::current_path(folder, ec);
}

}  // namespace

std::string selectedsurface(const JobFiles &files, int32_t id) {
  int found = 0;
  for (int j = 1; j <= files.stlfiles.n; ++j) {
    if (surfaceselected(files, j) && ++found == id)
      return rtrim(files.stlfiles[static_cast<size_t>(j - 1)]);
  }
  return {};
}

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
  loadsettings(rs.rep);
  rs.rep.opensignal();
  readdeck(rs.rep, rs.args, rs.settings, rs.files);
  const Settings &st = rs.settings;
  JobFiles &jf = rs.files;
  readsolverinput(rs.rep, st, jf);
  if (st.inpuflag) jf.casestem = jf.inputfile;
  if (!st.caseflag) jf.casefile = rtrim(jf.casestem) + ".case";
  jf.inputfolder = ".";
  if (st.inpuflag) {
    // Both folders are fixed against the folder the run started in, so that the change to the
    // case folder does not move the meaning of a relative input folder.
    std::error_code ec;
    const fs::path start = fs::current_path(ec);
    std::string drive, folder, name, ext;
    splitpath(rtrim(jf.inputfile), drive, folder, name, ext);
    jf.inputfolder = (start / (drive + folder)).lexically_normal().string();
    splitpath(rtrim(jf.casefile), drive, folder, name, ext);
    jf.casestem = name;
    jf.casefile = name + ext;
    jf.casefolder = drive + folder;
    changefolder(jf.casefolder);
    rs.caseinfo = readcase(rs.rep, jf.casefile);
    selectincrement(rs.caseinfo, st.incoffset, jf);
  }
  selectsurfaces(rs.rep, st, rs.caseinfo.ninc, jf);
  if (st.inpuflag) {
    jf.dispfile = rtrim(findresultfile("results/" + rtrim(jf.casestem) + "00_",
                                       jf.resultfilenumber, ".dis.ens"));
  }
}

void loadsimulation(RunState &rs) {
  readgeo(rs.rep, rs.caseinfo, rs.files.casestem, rs.files.meshfilenumber, ".geo", rs.sim);
  marknodes(rs.sim);
  rs.grid = initgrid(rs.rep, rs.sim);
  readvariable(rs.rep, rs.files.dispfile, rs.sim);
}

void surfacenames(RunState &rs, int i) {
  rs.progressbase = static_cast<int32_t>(std::lround(99.0 * (i - 1) / rs.files.nsurfaces));
  rs.progressshare = 1.0 / rs.files.nsurfaces;
  rs.curstlid = rs.files.stlids[static_cast<size_t>(i - 1)];
  if (rs.settings.outpflag) {
    // A list shorter than the surfaces leaves a surface without a name of its own.
    if (i > rs.settings.outfiles.n) {
      const std::string surface = selectedsurface(rs.files, rs.curstlid);
      fatal(196, {surface.empty() ? std::to_string(rs.curstlid) : surface});
    }
    rs.outstlpath = rtrim(rs.settings.outfiles[static_cast<size_t>(i - 1)]);
  } else
    rs.outstlpath = rtrim(rs.files.inputfile) + "_" + std::to_string(i) + "_warp.stl";
  std::string copy = rs.outstlpath;
  if (fileexists(copy)) copy = stripext(copy);
  rs.wrtupath = rtrim(copy) + "_wrtu.txt";
  std::string out = rtrim(rs.outstlpath);
  for (int j = 0; j < rs.files.stlfiles.n; ++j) {
    if (rtrim(rs.files.stlfiles[static_cast<size_t>(j)]) == out) {
      fatal(193, {out});
    }
  }
  rs.stlpath = selectedsurface(rs.files, rs.curstlid);
  // The list no longer holds the surface of this ID.
  if (rs.stlpath.empty()) fatal(197, {std::to_string(rs.curstlid)});
  rs.rep.say("STL file = " + rs.stlpath);
  changefolder(rs.files.inputfolder);
}

void freesurface(RunState &rs) {
  rs.raw = RawSurface();
  rs.mesh = SurfaceMesh();
  rs.edges = EdgeTable();
  release(rs.nrgtri);
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
  if (!rs.settings.scngflag) loadsimulation(rs);
  procref(rs);
  procscn(rs);
  const int n = rs.files.nsurfaces;
  for (int i = 1; i <= n; ++i) {
    surfacenames(rs, i);
    rs.raw = readstl(rs.rep, rs.stlpath, rs.stlbyteorder, false);
    // The watertightness warnings name the surface by its ID in the job's list.
    const std::string surfacename =
        rs.curstlid >= 1 && rs.curstlid <= rs.files.stlfiles.n
            ? rtrim(rs.files.stlfiles[static_cast<size_t>(rs.curstlid - 1)])
            : rtrim(rs.stlpath);
    const Tolerances rules{rs.settings.tolerances.reltoledge, rs.settings.tolerances.reltolbox, rs.settings.tolerances.tolbyedge, rs.settings.tolerances.tolbybox};
    rs.check = preparesurface(rs.rep, rs.raw, rules, surfacename, rs.stlpath, rs.mesh, rs.edges);
    {
      const Settings &st = rs.settings;
      WarpField field;
      field.sim = &rs.sim;
      field.grid = &rs.grid;
      field.ref = &rs.ref;
      field.scn = &rs.scn;
      field.params.warpscale = st.warpscale;
      field.params.snaptolsq = st.snaptolsq();
      field.params.halfexponent = st.halfexponent();
      field.params.navg = st.navgnodes;
      field.params.fixz = st.fixzflag;
      field.params.ztol = st.ztol;
      field.params.norel = st.norelflag;
      field.params.refg = st.refgflag;
      field.params.scng = st.scngflag;
      RefineParams refine;
      refine.maxrefine = st.maxrefine;
      refine.minedge = st.minedge;
      refine.maxedge = st.maxedge;
      refine.refinetolsq = st.refinetolsq();
      refine.progressbase = rs.progressbase;
      refine.progressshare = rs.progressshare;
      warpstl(rs.rep, field, st.inpuflag, rs.refminz, WarpScales{rs.files.stlscale, st.unitscale},
              refine, rs.mesh, rs.edges);
    }
    rs.rep.say("Calculating surface normals");
    facetnormals(rs.mesh.vrt.data(), static_cast<size_t>(rs.mesh.nvrt), rs.mesh.tri.data(),
                 rs.mesh.ntri, rs.nrgtri);
    const std::string out = rtrim(rs.outstlpath);
    writestl(rs.mesh, &rs.nrgtri, out, rs.settings.stlformat);
    if (rs.settings.stlformat == 'b') rs.rep.say("Finished writing binary STL file " + out);
    if (rs.settings.wrtuflag) {
      const std::string path = rtrim(rs.wrtupath);
      writetextreport(rs.mesh, path);
      rs.rep.say("Finished writing file " + path);
    }
    if (rs.settings.ovtkflag) {
      const std::string path = vtkname(out);
      writevtk(rs.mesh, dispsingle(rs.mesh, "writevtkstep, dispsingle, 1"), path, 'b', true);
      rs.rep.finishedfile(path);
      rs.rep.say("Finished writing VTK file " + path);
    }
    if (rs.settings.o3dmflag)
      write3mf(rs.rep, rs.mesh, dispsingle(rs.mesh, "write3mfstep, dispsingle, 1"),
               packagefolder(out));
    freesurface(rs);
    if (rs.settings.tsrdflag) {
      const RecheckSettings settings{rules, rs.settings.repairtol, rs.settings.tsreflag};
      rs.outstlpath = recheckstep(rs.rep, rs.outstlpath, settings, rs.stlpath, rs.stlbyteorder);
    }
    if (rs.settings.o3mfflag) {
      // The path is passed as it stands, blanks and all.
      const std::string plain = plain3mfname(rs.outstlpath);
      if (convertto3mf(rs.rep, rs.outstlpath.c_str(), plain.c_str()) != 0) {
        rs.rep.say("Warning:  3MF conversion was not successful.");
        rs.rep.blank();
      }
    }
    finishsurface(rs);
  }
  rs.rep.finish(1);
  return 0;
}

}  // namespace wf

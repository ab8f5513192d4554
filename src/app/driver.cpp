// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/driver.h"

#include <cmath>
#include <filesystem>

#include "app/steps.h"
#include "base/fatal.h"
#include "base/text.h"
#include "control/catalogue.h"
#include "control/deck.h"
#include "control/solverinput.h"
#include "outputs/outcommon.h"
#include "outputs/package3mf.h"
#include "outputs/textreport.h"
#include "outputs/vtkwriter.h"
#include "simresults/readgeo.h"
#include "simresults/simulation.h"
#include "surface/normals.h"
#include "surface/writestl.h"
#include "warp/closestpoint.h"
#include "warp/nodegrid.h"
#include "warp/warpstl.h"

namespace fs = std::filesystem;

namespace wf {

namespace {

// What the run has loaded for all its surfaces.
struct RunData {
  Settings settings;
  JobFiles files;
  CaseInfo caseinfo;
  RunFolders folders;
  Simulation sim;
  NodeGrid grid;
  QuerySet ref, scn;
  double refminz = 0;
  StlMemory stl;  // carried from read to read
};

WarpField warpfield(const RunData &run) {
  const Settings &st = run.settings;
  WarpField field;
  field.sim = &run.sim;
  field.grid = &run.grid;
  field.ref = &run.ref;
  field.scn = &run.scn;
  field.params.warpscale = st.warpscale;
  field.params.snaptolsq = st.snaptolsq();
  field.params.halfexponent = st.halfexponent();
  field.params.navg = st.navgnodes;
  field.params.fixz = st.fixzflag;
  field.params.ztol = st.ztol;
  field.params.norel = st.norelflag;
  field.params.refg = st.refgflag;
  field.params.scng = st.scngflag;
  return field;
}

// One pass of the surface loop: read, prepare, warp, normals, the outputs, the check.
void processsurface(Reporter &rep, RunData &run, int i) {
  const Settings &st = run.settings;
  const SurfaceNames names = surfacenames(rep, st, run.files, run.folders, i);
  const Folder &in = run.folders.surfaces;
  std::string outstlpath = names.outstlpath;
  {
    RawSurface raw = readstlstep(rep, names.stlpath, run.stl, in);
    // The watertightness warnings name the surface by its ID in the job's list.
    const JobFiles &jf = run.files;
    const std::string surfacename = names.curstlid >= 1 && names.curstlid <= jf.stlfiles.n
                                        ? rtrim(jf.stlfiles[static_cast<size_t>(names.curstlid - 1)])
                                        : rtrim(run.stl.path);
    PreparedSurface prep = preparesurfacestep(rep, raw, st.tolerances, surfacename, run.stl.path);
    SurfaceMesh &mesh = prep.mesh;
    EdgeTable &edges = prep.edges;

    RefineParams refine;
    refine.maxrefine = st.maxrefine;
    refine.minedge = st.minedge;
    refine.maxedge = st.maxedge;
    refine.refinetolsq = st.refinetolsq();
    refine.progressbase = names.progressbase;
    refine.progressshare = names.progressshare;
    warpstep(rep, warpfield(run), st.inpuflag, run.refminz, WarpScales{run.files.stlscale, st.unitscale}, refine, mesh,
             edges);
    edges = EdgeTable();

    rep.say("Calculating surface normals");
    // Only the text forms print the facet normals; the binary ones write zeros.
    std::vector<double> nrgtri;
    const StlForm form = StlForm(st.stlformat);
    if (form == StlForm::ascii || form == StlForm::asciijoined)
      facetnormals(mesh.vrt.data(), static_cast<size_t>(mesh.nvrt), mesh.tri.data(), mesh.ntri, nrgtri);
    const std::string out = rtrim(outstlpath);
    writestl(mesh, &nrgtri, out, StlForm(st.stlformat), in);
    if (StlForm(st.stlformat) == StlForm::binary) rep.say("Finished writing binary STL file " + out);

    if (st.wrtuflag) {
      const std::string path = rtrim(names.wrtupath);
      writetextreport(mesh, path, in);
      rep.say("Finished writing file " + path);
    }
    if (st.ovtkflag) {
      const std::string path = vtkname(out);
      writevtk(mesh, dispsingle(mesh, "writevtkstep, dispsingle, 1"), path, in);
      rep.finishedfile(path);
      rep.say("Finished writing VTK file " + path);
    }
    if (st.o3dmflag) package3mfstep(rep, mesh, dispsingle(mesh, "write3mfstep, dispsingle, 1"), packagefolder(out), in);
    // The arrays of the pass are released here, before the read-back.
  }
  if (st.tsrdflag) {
    const RecheckSettings settings{st.tolerances, st.repairtol, st.tsreflag};
    outstlpath = recheckstep(rep, outstlpath, settings, run.stl, in);
  }
  if (st.o3mfflag) {
    // The path is passed as it stands, blanks and all (the padding of recheckstep, kept
    // deliberately: see recheckstep in app/steps.cpp).
    plain3mfstep(rep, outstlpath, in);
  }
  finishsurface(rep, outstlpath);
}

}  // namespace

std::string selectedname(const JobFiles &files, int32_t id) {
  const int j = nthselected(files, id);
  return j > 0 ? rtrim(files.stlfiles[static_cast<size_t>(j - 1)]) : std::string();
}

void splitpath(const std::string &path, std::string &folder, std::string &name, std::string &ext) {
  const size_t slash = path.find_last_of('/');
  const size_t start = slash == std::string::npos ? 0 : slash + 1;
  folder = path.substr(0, start);
  const std::string file = path.substr(start);
  const size_t dot = file.find_last_of('.');
  if (dot == std::string::npos) {
    name = file;
    ext.clear();
  } else {
    name = file.substr(0, dot);
    ext = file.substr(dot);
  }
}

void initrun(Reporter &rep, const std::vector<std::string> &args, Settings &st, JobFiles &jf, CaseInfo &caseinfo,
             RunFolders &folders) {
  rep.loadcatalogue(cataloguepath());
  rep.opensignal();
  readdeckstep(rep, args, st, jf);
  solverinputstep(rep, st, jf);
  if (st.inpuflag) jf.casestem = jf.inputfile;
  if (!st.caseflag) {
    jf.casefile = rtrim(jf.casestem);
    jf.casefile += ".case";
  }
  jf.inputfolder.assign(1, '.');
  if (st.inpuflag) {
    // Both folders are taken from the folder the run started in: a relative input folder does
    // not mean a folder below the case folder.
    std::error_code ec;
    const fs::path start = fs::current_path(ec);
    std::string folder, name, ext;
    splitpath(rtrim(jf.inputfile), folder, name, ext);
    jf.inputfolder = (start / folder).lexically_normal().string();
    splitpath(rtrim(jf.casefile), folder, name, ext);
    jf.casestem = name;
    jf.casefile = name + ext;
    jf.casefolder = folder;
    folders.cases = Folder().enter(jf.casefolder);
    caseinfo = readcasestep(rep, jf.casefile, folders.cases);
    selectincrement(caseinfo, st.incoffset, jf);
  }
  folders.surfaces = folders.cases.enter(jf.inputfolder);
  selectsurfacesstep(rep, st, caseinfo.ninc, jf);
  if (st.inpuflag) {
    // Kept deliberately: the displacement file is looked for under results/ of the case folder
    // also in the cloud layout, where the mesh file comes from below the cloud folder
    // (simresults/readgeo). [pinned: CloudJob.TakesTheDisplacementsFromTheCaseFolder]
    jf.dispfile =
        rtrim(findresultfile("results/" + rtrim(jf.casestem) + "00_", jf.resultfilenumber, ".dis.ens", folders.cases));
  }
}

SurfaceNames surfacenames(Reporter &rep, const Settings &st, const JobFiles &jf, RunFolders &folders, int i) {
  SurfaceNames n;
  n.progressbase = static_cast<int32_t>(std::lround(99.0 * (i - 1) / jf.nsurfaces));
  n.progressshare = 1.0 / jf.nsurfaces;
  n.curstlid = jf.stlids[static_cast<size_t>(i - 1)];
  const std::string surface = selectedname(jf, n.curstlid);
  if (st.outpflag) {
    // A list shorter than the surfaces leaves a surface without a name of its own.
    if (i > st.outfiles.n) fatal(196, {surface.empty() ? std::to_string(n.curstlid) : surface});
    n.outstlpath = rtrim(st.outfiles[static_cast<size_t>(i - 1)]);
  } else {
    n.outstlpath = rtrim(jf.inputfile) + "_" + std::to_string(i) + "_warp.stl";
  }
  // Kept deliberately: the report's name depends on whether an earlier output stands there, in
  // the folder the pass starts in (the case folder in the first pass): a first run writes
  // job_1_warp.stl_wrtu.txt, a run over its output job_1_warp_wrtu.txt. [pinned: regression
  // jobs forma_wrtu, nrle_fixz (first run); Jobs.TheFirstPassLooksForAnEarlierOutputInTheCaseFolder
  // (second run, and the folder)]
  std::string copy = n.outstlpath;
  if (fileexists(folders.here().at(copy))) copy = stripext(copy);
  n.wrtupath = rtrim(copy) + "_wrtu.txt";
  const std::string out = rtrim(n.outstlpath);
  for (int j = 0; j < jf.stlfiles.n; ++j)
    if (rtrim(jf.stlfiles[static_cast<size_t>(j)]) == out) fatal(193, {out});
  n.stlpath = surface;
  // The list no longer holds the surface of this ID.
  if (n.stlpath.empty()) fatal(197, {std::to_string(n.curstlid)});
  rep.say("STL file = " + n.stlpath);
  folders.insurfaces = true;
  return n;
}

void finishsurface(Reporter &rep, const std::string &outstlpath) {
  rep.blank();
  rep.say("Finished writing file " + rtrim(outstlpath));
  rep.blank();
  // Kept deliberately: the words say CPU, the value is the wall clock since the start of the
  // process; logs are read by these words. [pinned: regression set, every job's console.txt]
  rep.say("CPU wall = " + walltext(rep.wallseconds()));
  rep.blank();
}

int runwarpforge(Reporter &rep, const std::vector<std::string> &args) {
  setfpmode();
  RunData run;
  initrun(rep, args, run.settings, run.files, run.caseinfo, run.folders);
  const Settings &st = run.settings;
  const Folder &cases = run.folders.cases;
  if (!st.scngflag) {
    readmeshstep(rep, run.caseinfo, run.files.casestem, run.files.meshfilenumber, run.sim, cases);
    marknodes(run.sim);
    run.grid = nodegridstep(rep, run.sim);
    readdisplacementstep(rep, run.files.dispfile, run.sim, cases);
  }
  // The reference and scanned geometries are named from the case folder: the surface loop has
  // not yet entered the folder of the solver input file.
  if (st.refgflag) {
    run.ref = querysetstep(rep, "Processing reference geometry", st.reffiles.n > 0 ? st.reffiles[0] : std::string(),
                           run.stl, run.folders.here());
    run.refminz = run.ref.bbox[2];
  }
  if (st.scngflag) {
    run.scn = querysetstep(rep, "Processing scanned geometry", st.scnfiles.n > 0 ? st.scnfiles[0] : std::string(),
                           run.stl, run.folders.here());
  }
  const int n = run.files.nsurfaces;
  for (int i = 1; i <= n; ++i) processsurface(rep, run, i);
  rep.finish(1);
  return 0;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-2.0-or-later
// RunState: the one record of a run. Every step takes it by reference as its first argument.
// Arrays are flat std::vector in column layout (the coordinate runs fastest); the values they
// hold keep 1-based numbering with 0 for none. Counts are kept beside each array.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "base/reporter.h"
#include "surface/preparesurface.h"
#include "surface/surfacemesh.h"

namespace wf {

// A prepared triangle query set (reference or scan): per triangle t (0-based below)
// corners at corners[9t .. 9t+8] (corner 1 x,y,z, corner 2, corner 3), the edge vectors
// e0 = corner2 - corner1 and e1 = corner3 - corner1 at [3t..3t+2], and the five products.
struct TriData {
  int32_t nvrt = 0;  // raw vertex count, 3 * ntri
  int32_t ntri = 0;
  std::vector<double> corners;  // 3 x nvrt
  std::vector<double> e0, e1;   // 3 x ntri each
  std::vector<double> a, b, c, det, den;  // ntri each
  std::vector<double> normal;  // 3 x ntri
  std::vector<double> nnsq;    // ntri
  double bbox[6] = {0, 0, 0, 0, 0, 0};  // min x,y,z, max x,y,z
};

// A growable list with the capacity kept beside it (see pushint/pushname/pushreal).
template <class T>
struct List {
  std::vector<T> v;  // v.size() is the capacity
  int32_t n = 0;     // count in use
  T &operator[](size_t i) { return v[i]; }
  const T &operator[](size_t i) const { return v[i]; }
  void clear() { v.clear(); n = 0; }
};

struct RunState {
  // ---- settings of the control deck (defaults set by readdeck through setdefaults) ----
  double warpscale = -1.0;
  double unitscale = 1.0;
  int32_t navgnodes = 10;
  double avgexponent = 1.0;
  double snaptol = 1.0e-5;
  int32_t maxrefine = 10;
  double minedge = 0.5;
  double maxedge = 3.0;
  double refinetol = 0.001;
  char stlformat = 'b';
  int32_t incoffset = -2;
  double ztol = 1.0e-5;
  double repairtol = 0.01;
  // fixed settings
  double reltoledge = 0.1;
  double reltolbox = 1.0e-6;
  bool tolbyedge = false;
  bool tolbybox = false;

  // ---- flags ----
  bool inpuflag = false, caseflag = false, tsrdflag = false, tsreflag = false;
  bool ovtkflag = false, o3dmflag = true, o3mfflag = false, refgflag = false;
  bool scngflag = false, outpflag = false, istlflag = false, astlflag = false;
  bool sstlflag = false, fixzflag = false, norelflag = false, wrtuflag = false;
  bool ssssflag = false;

  // ---- derived in initrun ----
  double snaptolsq = 0, refinetolsq = 0, halfexponent = 0;

  // ---- lists ----
  List<std::string> stlfiles;   // nstlfiles = stlfiles.n
  List<int32_t> stltype;
  List<float> stlfraction;
  List<int32_t> stlids;         // nstlids = stlids.n
  List<std::string> outfiles;
  List<std::string> reffiles;
  List<std::string> scnfiles;

  // ---- paths (held trimmed unless stated) ----
  std::string deckpath;     // the deck as given on the command line, trimmed
  std::string deckstem;
  std::string inputfile;
  std::string casefile;
  std::string casestem;
  std::string inputfolder = ".";
  std::string casefolder;
  std::string dispfile;
  std::string stlpath;
  std::string outstlpath;   // after recheckstep: blank-padded to 8192 characters
  std::string wrtupath;

  // ---- per surface ----
  int32_t curstlid = 1;
  int32_t progressbase = 0;
  double progressshare = 1.0;
  int32_t nsurfaces = 0;

  // ---- solver input file ----
  double stlscale = 1.0;
  int32_t ofnsdigits = 5;
  int32_t resultfilenumber = 0, meshfilenumber = 0;

  // ---- case file ----
  int32_t ninc = 0, nmesh = 0;
  std::vector<int32_t> resultnums, meshnums;
  std::vector<double> resulttimes, meshtimes;
  bool cloudlayout = false;
  std::string cloudprefix = ".";
  std::string cloudstem;
  std::FILE *caseunit = nullptr;  // left open to the end of the run

  // ---- simulation mesh ----
  int32_t nnodes = 0;
  std::vector<double> nodexyz;     // 3 x nnodes
  std::vector<int32_t> nodeid;     // nnodes
  std::vector<int32_t> nodeindex;  // last nodeid
  int32_t nelems = 0;
  std::vector<int32_t> elemconn;   // 8 x nelems
  std::vector<int32_t> elemid;
  std::vector<int32_t> elemindex;
  bool resultsbinary = false;
  std::vector<uint8_t> nodeactive;  // 255 for a node that an element uses
  std::vector<double> nodedisp;     // 3 x nnodes

  // ---- node grid ----
  double gridorigin[3] = {0, 0, 0};
  double gridcellsize[3] = {0, 0, 0};
  int32_t gridnx = 1, gridny = 1, gridnz = 1;
  std::vector<int32_t> jcellnodes;   // nnodes
  std::vector<int32_t> j0cellnodes;  // 2 x gridnx x gridny x gridnz

  // ---- current surface ----
  int32_t stlbyteorder = 0;     // stays set between surfaces
  RawSurface raw;
  SurfaceMesh mesh;
  EdgeTable edges;
  std::vector<double> nrgtri;   // facet normals of the mesh
  SurfaceCheck check;
  // warp and refinement
  double buildplane = 0;
  std::vector<uint8_t> triactive;
  int32_t vrtcap = 0, tricap = 0;

  // ---- reference and scan query sets ----
  TriData ref, scn;
  double refminz = 0;

  // ---- console, signal stream, catalogue, telemetry ----
  Reporter rep;
  std::vector<std::string> args;  // command-line arguments after the program name
};

}  // namespace wf

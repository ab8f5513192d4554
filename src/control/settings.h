// SPDX-License-Identifier: GPL-3.0-or-later
// What a run is told, in two records. Settings holds the values and flags of the control deck,
// with their defaults in one place (the initialisers below); which card sets each, and how it is
// read, echoed and checked, is in the deck's table of cards (control/deckcards.h). Settings is
// fixed once the deck has been validated and made final. JobFiles holds the paths and the surface
// lists of the job, which the deck, the solver input file and the selection of surfaces fill in
// turn.
#pragma once

#include <cstdint>
#include <string>

#include "base/list.h"
#include "surface/preparesurface.h"

namespace wf {

struct Settings {
  // Values of the cards.
  double warpscale = -1.0;
  double unitscale = 1.0;
  int32_t navgnodes = 10;
  double avgexponent = 1.0;
  double snaptol = 1.0e-5;
  int32_t maxrefine = 10;
  double minedge = 0.5;
  double maxedge = 3.0;
  double refinetol = 0.001;
  char stlformat = 'b';  // the letter as given (surface/writestl.h StlForm once checked)
  int32_t incoffset = -2;
  double ztol = 1.0e-5;
  double repairtol = 0.01;
  // Fixed settings of the surface tolerance; no card reaches them.
  Tolerances tolerances;

  // Flags of the cards; o3dmflag alone starts true (*N3DM clears it). astlflag is cleared when
  // *ISTL is given too.
  bool inpuflag = false, caseflag = false, tsrdflag = false, tsreflag = false;
  bool ovtkflag = false, o3dmflag = true, o3mfflag = false, refgflag = false;
  bool scngflag = false, outpflag = false, istlflag = false, astlflag = false;
  bool sstlflag = false, fixzflag = false, norelflag = false, wrtuflag = false;

  // Lists of the cards.
  List<std::string> outfiles;
  List<std::string> reffiles;
  List<std::string> scnfiles;

  // Derived once the deck is read.
  double snaptolsq() const { return snaptol * snaptol; }
  double refinetolsq() const { return refinetol * refinetol; }
  double halfexponent() const { return 0.5 * avgexponent; }
};

struct JobFiles {
  std::string deckpath;           // the deck as given, trimmed
  std::string deckstem;           // the deck's path cut at its last dot
  std::string inputfile;          // *INPU: stem of the solver input file (<stem>.in)
  std::string casefile;           // *CASE, or <stem>.case; after the split its name only
  std::string casestem;           // name of the case file without folder and extension
  std::string inputfolder = ".";  // folder of the solver input file (absolute)
  std::string casefolder;         // folder of the case file
  std::string dispfile;           // the displacement file, relative to casefolder

  // The job's surfaces: file, type and fraction per entry (from *STLF and *STLM).
  List<std::string> stlfiles;
  List<int32_t> stltype;
  List<float> stlfraction;
  // 1-based ranks among the selected surfaces, one per pass of the surface loop (*ISTL, or
  // made by the selection).
  List<int32_t> stlids;
  int32_t nsurfaces = 0;
  // Whether surfaces of another type are selected by their fraction (*SSTL, until the selection
  // drops it at the last increment).
  bool selectbyfraction = false;

  // From the solver input file.
  double stlscale = 1.0;   // *STLS
  int32_t ofnsdigits = 5;  // *OFNS
  bool ssssflag = false;   // *SSSS

  // The increment and mesh chosen.
  int32_t resultfilenumber = 0;
  int32_t meshfilenumber = 0;
};

// Whether entry j (1-based) of the job's surfaces is selected: type 1, or with selectbyfraction
// a fraction above 0.999 (single precision). An entry without a type counts as type 1.
bool isselected(const JobFiles &files, int j);
// The entry (1-based) of the id-th selected surface (id 1-based); 0 when fewer are selected.
int nthselected(const JobFiles &files, int32_t id);

}  // namespace wf

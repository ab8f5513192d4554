// SPDX-License-Identifier: GPL-3.0-or-later
// The solver input file holds many cards of the solver; five concern a warp, and the rest are
// passed over in silence. From its surfaces and the case's time sets the run picks the result
// increment, the mesh that existed at that increment, and the surfaces the loop processes.
#include "control/solverinput.h"

#include <algorithm>
#include <string>
#include <type_traits>

#include "base/fatal.h"
#include "base/text.h"
#include "base/textio.h"
#include "control/deck.h"

namespace wf {

namespace {

// The value line of *OFNS or *STLS: the first free-form token of the next line that is no
// comment. No coded message exists for a missing line or a line without a number: the run ends
// as a failure of the I/O layer.
template <class T>
void readcardvalue(LineReader &in, const std::string &path, const char *card, T &value) {
  std::string line;
  skipcomments(in);
  if (in.readline(line) != 0) iolayerfailure("I/O error: " + path + ": no line after " + card);
  size_t pos = 0;
  int st = 0;
  if constexpr (std::is_same_v<T, int32_t>)
    st = readint(line, pos, value);
  else
    st = readreal(line, pos, value);
  if (st != 0) iolayerfailure("I/O error: " + path + ": no number on the line after " + card);
}

// One *STLM row: four free-form numbers, which may spread over lines as a list read does.
// Returns false when a read fails (a card line, a word, the end of the file).
bool readstlmrow(LineReader &in, int32_t &type, float &fraction) {
  std::string line;
  int32_t ints[3] = {0, 0, 0};
  int k = 0;
  while (k < 4) {
    if (in.readline(line) != 0) return false;
    size_t pos = 0;
    while (k < 4) {
      int st = k < 3 ? readint(line, pos, ints[k]) : readreal(line, pos, fraction);
      if (st == IOSTAT_EOF) break;
      if (st != 0) return false;
      ++k;
    }
  }
  type = ints[0];
  return true;
}

int countselected(const JobFiles &files) {
  int c = 0;
  for (int j = 1; j <= files.stlfiles.n; ++j)
    if (isselected(files, j)) ++c;
  return c;
}

int32_t surftype(const JobFiles &files, int j) {
  return j <= files.stltype.n ? files.stltype[static_cast<size_t>(j - 1)] : 1;
}

std::string nameof(const JobFiles &files, int j) { return rtrim(files.stlfiles[static_cast<size_t>(j - 1)]); }

}  // namespace

bool isselected(const JobFiles &files, int j) {
  if (j < 1 || j > files.stlfiles.n) return false;
  // A surface without a *STLM row counts as a job without *STLM: processed by default.
  if (surftype(files, j) == 1) return true;
  if (!files.selectbyfraction) return false;
  const float fraction = j <= files.stlfraction.n ? files.stlfraction[static_cast<size_t>(j - 1)] : 1.0f;
  return fraction > 0.999f;
}

int nthselected(const JobFiles &files, int32_t id) {
  int found = 0;
  for (int j = 1; j <= files.stlfiles.n; ++j)
    if (isselected(files, j) && ++found == id) return j;
  return 0;
}

void readsolverinput(const Settings &settings, JobFiles &files, const InputOpenFn &onopen) {
  files.ofnsdigits = 5;
  files.stlscale = 1.0;
  files.ssssflag = false;
  if (!settings.inpuflag) return;

  const std::string path = rtrim(files.inputfile) + ".in";
  checkexists(path);
  LineReader in;
  checkopen(in.open(path), path);
  if (onopen) onopen(path);

  bool stlmseen = false;
  std::string line;
  while (in.readline(line) == 0) {
    const std::string key = line.substr(0, 5);
    if (key == "*OFNS") {
      readcardvalue(in, path, "*OFNS", files.ofnsdigits);
    } else if (key == "*STLS") {
      readcardvalue(in, path, "*STLS", files.stlscale);
    } else if (key == "*STLF") {
      readstlf(in, files.stlfiles);
    } else if (key == "*STLM") {
      stlmseen = true;
      files.stltype.start();
      files.stlfraction.start();
      for (;;) {
        skipcomments(in);
        int32_t type = 0;
        float fraction = 0;
        if (!readstlmrow(in, type, fraction)) break;
        pushvalue(files.stltype, type);
        pushvalue(files.stlfraction, fraction);
      }
      in.stepback();
    } else if (key == "*SSSS") {
      files.ssssflag = true;
    }
  }
  in.close();

  if (files.ofnsdigits > 9) fatal(190);
  if (!stlmseen) {
    const size_t n = files.stlfiles.n > 0 ? static_cast<size_t>(files.stlfiles.n) : 0;
    files.stltype.v.assign(n, 1);
    files.stltype.n = static_cast<int32_t>(n);
    files.stlfraction.v.assign(n, 1.0f);
    files.stlfraction.n = static_cast<int32_t>(n);
  }
}

void selectincrement(const CaseInfo &info, int32_t incoffset, JobFiles &files) {
  const int32_t ninc = info.ninc;
  const long long off = incoffset;
  const long long mag = off < 0 ? -off : off;
  if (mag < 1 || mag > ninc) fatal(194, {"1", inttext(ninc)});
  const long long idx = off > 0 ? off : ninc + 1 + off;
  if (idx < 1 || static_cast<size_t>(idx) > info.resulttimes.size() ||
      static_cast<size_t>(idx) > info.resultnums.size())
    fatal(194, {"1", inttext(ninc)});
  const double t = info.resulttimes[static_cast<size_t>(idx - 1)];
  // The latest mesh not later than t; of equal times the first, since only a larger one replaces.
  long long best = 0;
  const long long nmesh =
      std::min<long long>(info.nmesh, static_cast<long long>(std::min(info.meshtimes.size(), info.meshnums.size())));
  for (long long m = 1; m <= nmesh; ++m) {
    const double tm = info.meshtimes[static_cast<size_t>(m - 1)];
    if (tm <= t && (best == 0 || tm > info.meshtimes[static_cast<size_t>(best - 1)])) best = m;
  }
  // No mesh existed yet at the time of the chosen increment.
  if (best == 0) fatal(195, {numtext(t)});
  files.resultfilenumber = info.resultnums[static_cast<size_t>(idx - 1)];
  files.meshfilenumber = info.meshnums[static_cast<size_t>(best - 1)];
}

void selectsurfaces(const Settings &settings, int32_t ninc, JobFiles &files, const SurfaceWarningFn &onwarning) {
  const auto warn = [&](int code, int j) {
    if (onwarning) onwarning(code, nameof(files, j));
  };
  const bool lastinc = settings.incoffset == -1 || settings.incoffset == ninc;
  const int nfiles = files.stlfiles.n;
  if (nfiles < 1) fatal(191);
  int c = countselected(files);
  if (files.selectbyfraction && files.ssssflag) fatal(371);
  // Kept deliberately: the whole-job run (*ASTL) warns (1036, 1037) and drops what is not a
  // surface of type 1 at the last increment, while a list of chosen IDs (*ISTL) with such a
  // surface is refused (370) below. [pinned: SolverInput.SurfacesOfTheLoop]
  if (settings.astlflag && files.selectbyfraction) {
    if (c < nfiles) {
      for (int j = 1; j <= nfiles; ++j)
        if (!isselected(files, j)) warn(1036, j);
    }
    if (lastinc) {
      for (int j = 1; j <= nfiles; ++j)
        if (isselected(files, j) && surftype(files, j) != 1) warn(1037, j);
      files.selectbyfraction = false;
      c = countselected(files);
    }
  }
  if (!settings.istlflag) {
    const int n = settings.astlflag ? c : 1;
    files.nsurfaces = n;
    files.stlids.v.resize(static_cast<size_t>(n > 0 ? n : 0));
    files.stlids.n = n > 0 ? n : 0;
    for (int i = 0; i < files.stlids.n; ++i) files.stlids[static_cast<size_t>(i)] = i + 1;
    return;
  }
  for (int i = 0; i < files.stlids.n; ++i)
    if (files.stlids[static_cast<size_t>(i)] > c) fatal(192, {inttext(c)});
  files.nsurfaces = files.stlids.n;
  if (files.selectbyfraction && lastinc) {
    for (int i = 0; i < files.stlids.n; ++i) {
      const int j = nthselected(files, files.stlids[static_cast<size_t>(i)]);
      if (j > 0 && surftype(files, j) != 1) fatal(370, {nameof(files, j)});
    }
  }
}

}  // namespace wf

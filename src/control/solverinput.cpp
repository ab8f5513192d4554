// SPDX-License-Identifier: GPL-2.0-or-later
// The solver input file holds many cards of the solver; five concern a warp, and the rest are
// passed over in silence. From its surfaces and the case's time sets the run picks the result
// increment, the mesh that existed at that increment, and the surfaces the loop processes.
#include "control/solverinput.h"

#include <algorithm>
#include <string>
#include <type_traits>

#include "control/deck.h"
#include "control/messages.h"
#include "base/textio.h"

namespace wf {

namespace {


// The value line of *OFNS or *STLS: the first free-form token of the next line that is no
// comment. A missing line or a line without a number is a read error of the file.
template <class T>
void readcardvalue(RunState &rs, LineReader &in, const std::string &path, T &value) {
  std::string line;
  skipcomments(in);
  checkread(in.readline(line), path);
  size_t pos = 0;
  int st = 0;
  if constexpr (std::is_same_v<T, int32_t>)
    st = readint(line, pos, value);
  else
    st = readreal(line, pos, value);
  checkread(st == IOSTAT_EOF ? IOSTAT_BADVALUE : st, path);
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

int countselected(const RunState &rs) {
  int c = 0;
  for (int j = 1; j <= rs.stlfiles.n; ++j)
    if (surfaceselected(rs, j)) ++c;
  return c;
}

int32_t surftype(const RunState &rs, int j) {
  return j <= rs.stltype.n ? rs.stltype[static_cast<size_t>(j - 1)] : 1;
}

std::string nameof(const RunState &rs, int j) { return rtrim(rs.stlfiles[static_cast<size_t>(j - 1)]); }

}  // namespace

bool surfaceselected(const RunState &rs, int j) {
  if (j < 1 || j > rs.stlfiles.n) return false;
  // A surface without a *STLM row counts as a job without *STLM: processed by default.
  if (surftype(rs, j) == 1) return true;
  if (!rs.sstlflag) return false;
  const float fraction = j <= rs.stlfraction.n ? rs.stlfraction[static_cast<size_t>(j - 1)] : 1.0f;
  return fraction > 0.999f;
}

void readsolverinput(RunState &rs) {
  rs.ofnsdigits = 5;
  rs.stlscale = 1.0;
  rs.ssssflag = false;
  if (!rs.inpuflag) return;

  const std::string path = rtrim(rs.inputfile) + ".in";
  checkexists(path);
  LineReader in;
  checkopen(in.open(path), path);
  rs.rep.say("Reading input file " + path);

  bool stlmseen = false;
  std::string line;
  while (in.readline(line) == 0) {
    const std::string key = line.substr(0, 5);
    if (key == "*OFNS") {
      readcardvalue(rs, in, path, rs.ofnsdigits);
    } else if (key == "*STLS") {
      readcardvalue(rs, in, path, rs.stlscale);
    } else if (key == "*STLF") {
      readstlf(rs, in);
    } else if (key == "*STLM") {
      stlmseen = true;
      startlist(rs.stltype);
      startlist(rs.stlfraction);
      for (;;) {
        skipcomments(in);
        int32_t type = 0;
        float fraction = 0;
        if (!readstlmrow(in, type, fraction)) break;
        pushint(rs, rs.stltype, type);
        pushreal(rs, rs.stlfraction, fraction);
      }
      in.stepback();
    } else if (key == "*SSSS") {
      rs.ssssflag = true;
    }
  }
  in.close();

  if (rs.ofnsdigits > 9) {
    rs.rep.post(1, 190);
    fatalsilent();
  }
  if (!stlmseen) {
    const size_t n = rs.stlfiles.n > 0 ? static_cast<size_t>(rs.stlfiles.n) : 0;
    rs.stltype.v.assign(n, 1);
    rs.stltype.n = static_cast<int32_t>(n);
    rs.stlfraction.v.assign(n, 1.0f);
    rs.stlfraction.n = static_cast<int32_t>(n);
  }
  rs.rep.say("STL scaling factor = " + numtext(rs.stlscale));
  rs.rep.blank();
}

void selectincrement(RunState &rs) {
  const int32_t ninc = rs.ninc;
  const long long off = rs.incoffset;
  const long long mag = off < 0 ? -off : off;
  if (mag < 1 || mag > ninc) {
    rs.rep.post(1, 194, {"1", inttext(ninc)});
    fatalsilent();
  }
  const long long idx = off > 0 ? off : ninc + 1 + off;
  if (idx < 1 || static_cast<size_t>(idx) > rs.resulttimes.size() ||
      static_cast<size_t>(idx) > rs.resultnums.size()) {
    rs.rep.post(1, 194, {"1", inttext(ninc)});
    fatalsilent();
  }
  const double t = rs.resulttimes[static_cast<size_t>(idx - 1)];
  // The latest mesh not later than t; of equal times the first, since only a larger one replaces.
  long long best = 0;
  const long long nmesh = std::min<long long>(
      rs.nmesh, static_cast<long long>(std::min(rs.meshtimes.size(), rs.meshnums.size())));
  for (long long m = 1; m <= nmesh; ++m) {
    const double tm = rs.meshtimes[static_cast<size_t>(m - 1)];
    if (tm <= t && (best == 0 || tm > rs.meshtimes[static_cast<size_t>(best - 1)])) best = m;
  }
  if (best == 0) {
    // No mesh existed yet at the time of the chosen increment.
    rs.rep.post(1, 195, {numtext(t)});
    fatalsilent();
  }
  rs.resultfilenumber = rs.resultnums[static_cast<size_t>(idx - 1)];
  rs.meshfilenumber = rs.meshnums[static_cast<size_t>(best - 1)];
}

void selectsurfaces(RunState &rs) {
  const bool lastinc = rs.incoffset == -1 || rs.incoffset == rs.ninc;
  const int nfiles = rs.stlfiles.n;
  if (nfiles < 1) {
    rs.rep.post(1, 191);
    fatalsilent();
  }
  int c = countselected(rs);
  if (rs.sstlflag && rs.ssssflag) {
    rs.rep.post(1, 371);
    fatalsilent();
  }
  if (rs.astlflag && rs.sstlflag) {
    if (c < nfiles) {
      for (int j = 1; j <= nfiles; ++j)
        if (!surfaceselected(rs, j)) rs.rep.post(2, 1036, {nameof(rs, j)});
    }
    if (lastinc) {
      for (int j = 1; j <= nfiles; ++j)
        if (surfaceselected(rs, j) && surftype(rs, j) != 1) rs.rep.post(2, 1037, {nameof(rs, j)});
      rs.sstlflag = false;
      c = countselected(rs);
    }
  }
  if (!rs.istlflag) {
    const int n = rs.astlflag ? c : 1;
    rs.nsurfaces = n;
    rs.stlids.v.resize(static_cast<size_t>(n > 0 ? n : 0));
    rs.stlids.n = n > 0 ? n : 0;
    for (int i = 0; i < rs.stlids.n; ++i) rs.stlids[static_cast<size_t>(i)] = i + 1;
    return;
  }
  for (int i = 0; i < rs.stlids.n; ++i) {
    if (rs.stlids[static_cast<size_t>(i)] > c) {
      rs.rep.post(1, 192, {inttext(c)});
      fatalsilent();
    }
  }
  rs.nsurfaces = rs.stlids.n;
  if (rs.sstlflag && lastinc) {
    for (int i = 0; i < rs.stlids.n; ++i) {
      const int32_t id = rs.stlids[static_cast<size_t>(i)];
      int found = 0;
      for (int j = 1; j <= nfiles; ++j) {
        if (!surfaceselected(rs, j)) continue;
        if (++found == id) {
          if (surftype(rs, j) != 1) {
            rs.rep.post(1, 370, {nameof(rs, j)});
            fatalsilent();
          }
          break;
        }
      }
    }
  }
}

}  // namespace wf

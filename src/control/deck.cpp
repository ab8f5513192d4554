// SPDX-License-Identifier: GPL-2.0-or-later
#include "control/deck.h"

#include <cmath>
#include <limits>

#include "control/messages.h"

namespace wf {

namespace {

const std::string kIndent(30, ' ');


template <class T>
void pushvalue(RunState &rs, List<T> &list, const T &value, int *status) {
  if (status) *status = 0;
  ++list.n;
  int32_t cap = static_cast<int32_t>(list.v.size());
  if (list.n <= cap) {
    list.v[static_cast<size_t>(list.n - 1)] = value;
    return;
  }
  int32_t newcap = growcapacity(cap);
  bool ok = newcap > 0;
  if (ok) {
    try {
      list.v.resize(static_cast<size_t>(newcap));
    } catch (const std::bad_alloc &) {
      ok = false;
    } catch (const std::length_error &) {
      ok = false;
    }
  }
  if (!ok) {
    if (status) {
      *status = -1;
      return;
    }
    checkalloc(rs, 1, "push, tmp, 1");
  }
  list.v[static_cast<size_t>(list.n - 1)] = value;
}

// One free-form token, passing over blank lines as the list-directed read does.
int readtoken(LineReader &in, std::string &token) {
  std::string line;
  for (;;) {
    int st = in.readline(line);
    if (st != 0) return st;
    size_t pos = 0;
    if (nexttoken(line, pos, token)) return 0;
    if (pos < line.size() && line[pos] == '/') {  // a slash ends the read with nothing taken
      token.clear();
      return 0;
    }
  }
}

void checkdeckread(RunState &rs, int status, const std::string &deckpath, const std::string &line) {
  if (status == 0) return;
  postmessage(rs, 1, 97, {text256(deckpath), text256(line)});
  abortrun(rs);
}

void readnamelist(RunState &rs, LineReader &in, List<std::string> &list) {
  startlist(list);
  std::string line;
  for (;;) {
    skipcomments(in);
    if (in.readline(line) != 0 || (!line.empty() && line[0] == '*')) break;
    stripquotes(line);
    pushname(rs, list, line);
  }
  in.stepback();
}

void readidlist(RunState &rs, LineReader &in, const std::string &keyword) {
  startlist(rs.stlids);
  std::string line = keyword;
  for (;;) {
    skipcomments(in);
    int st = in.readline(line);
    if (st == 0 && !line.empty() && line[0] == '*') break;
    int32_t id = 0;
    size_t pos = 0;
    int rd = readint(line, pos, id);
    checkdeckread(rs, rd, rs.deckpath, keyword);
    if (st != 0) {
      // The end of the deck does not end this list: the last value would be pushed again and
      // again until the list can no longer grow, which is where this ends at once.
      checkalloc(rs, 1, "push, tmp, 1");
    }
    pushint(rs, rs.stlids, id);
  }
  in.stepback();
}

}  // namespace

int32_t growcapacity(int32_t cap) {
  float f = static_cast<float>(cap) * 1.2f;
  double c = std::ceil(static_cast<double>(f));
  if (!(c > 0) || c > static_cast<double>(std::numeric_limits<int32_t>::max())) return -1;
  return static_cast<int32_t>(c);
}

void pushint(RunState &rs, List<int32_t> &list, int32_t value, int *status) {
  pushvalue(rs, list, value, status);
}
void pushname(RunState &rs, List<std::string> &list, const std::string &value, int *status) {
  pushvalue(rs, list, value, status);
}
void pushreal(RunState &rs, List<float> &list, float value, int *status) {
  pushvalue(rs, list, value, status);
}

void skipcomments(LineReader &in) {
  std::string line;
  for (;;) {
    if (in.readline(line) != 0) return;  // the end counts as a blank
    if (line.empty() || line[0] != '#') break;
  }
  in.stepback();
}

void stripquotes(std::string &text) {
  std::string t = rtrim(text);
  size_t n = t.size();
  if (n >= 1 && t[0] == '"' && t[n - 1] == '"') {
    text = n < 3 ? std::string() : t.substr(1, n - 2);
  } else {
    text = t;
  }
}

void readstlf(RunState &rs, LineReader &in) {
  startlist(rs.stlfiles);
  std::string line = "*";
  int st = 0;
  do {
    skipcomments(in);
    st = in.readline(line);  // a failed read leaves the last name in place: it is pushed twice
    if (!line.empty() && line[0] == '*') break;
    stripquotes(line);
    pushname(rs, rs.stlfiles, line);
  } while (st == 0);
  in.stepback();
}

void setdefaults(RunState &rs) {
  rs.warpscale = -1.0;
  rs.unitscale = 1.0;
  rs.navgnodes = 10;
  rs.avgexponent = 1.0;
  rs.snaptol = 1.0e-5;
  rs.maxrefine = 10;
  rs.minedge = 0.5;
  rs.maxedge = 3.0;
  rs.refinetol = 0.001;
  rs.stlformat = 'b';
  rs.incoffset = -2;
  rs.ztol = 1.0e-5;
  rs.repairtol = 0.01;
  rs.reltoledge = 0.1;
  rs.reltolbox = 1.0e-6;
  rs.tolbyedge = false;
  rs.tolbybox = false;
  rs.inpuflag = rs.caseflag = rs.tsrdflag = rs.tsreflag = false;
  rs.ovtkflag = rs.o3mfflag = rs.refgflag = rs.scngflag = false;
  rs.o3dmflag = true;
  rs.outpflag = rs.istlflag = rs.astlflag = rs.sstlflag = false;
  rs.fixzflag = rs.norelflag = rs.wrtuflag = rs.ssssflag = false;
  rs.stlfiles.clear();
  rs.stltype.clear();
  rs.stlfraction.clear();
  rs.stlids.clear();
  rs.outfiles.clear();
  rs.reffiles.clear();
  rs.scnfiles.clear();
  rs.inputfile.clear();
  rs.casefile.clear();
  rs.curstlid = 1;
  rs.stlscale = 1.0;
  rs.ofnsdigits = 5;
}

namespace {

void echo(RunState &rs, bool ztolgiven) {
  say(rs, "Warpage scaling factor      = " + numtext(rs.warpscale));
  say(rs, "Output unit scaling factor  = " + numtext(rs.unitscale));
  say(rs, "# of weighted average nodes = " + inttext(rs.navgnodes));
  say(rs, "Weighted average exponent   = " + numtext(rs.avgexponent));
  say(rs, "Snapping tolerance          = " + numtext(rs.snaptol));
  say(rs, "Max refinement levels       = " + inttext(rs.maxrefine));
  say(rs, "Min edge length             = " + numtext(rs.minedge));
  say(rs, "Max edge length             = " + numtext(rs.maxedge));
  say(rs, "Refinement tolerance        = " + numtext(rs.refinetol));
  say(rs, "STL output format           = " + std::string(1, rs.stlformat));
  say(rs, "Increment offset            = " + inttext(rs.incoffset));
  if (rs.fixzflag) {
    sayblank(rs);
    say(rs, "Fixing Z displacements for vertices with minimal");
    say(rs, "Z coordinates");
    sayblank(rs);
    say(rs, "Z tolerance = " + numtext(rs.ztol));
    sayblank(rs);
  }
  if (rs.norelflag) {
    sayblank(rs);
    say(rs, "Applying no relative excursion from the build plane");
    sayblank(rs);
  }
  if (ztolgiven && !rs.fixzflag) {
    say(rs, "WARNING:  *ZTOL has no effect without *FIXZ");
    sayblank(rs);
  }
  if (rs.fixzflag && rs.norelflag) say(rs, "WARNING:  no Z distortion will be applied during this warp.");
  if (rs.istlflag && rs.astlflag) {
    say(rs, "WARNING:  *ASTL is ignored with *ISTL");
    sayblank(rs);
    rs.astlflag = false;
  }
}

// All checks run; each fault posts its message. Returns whether any failed.
bool validate(RunState &rs) {
  bool failed = false;
  auto fail = [&](int code, std::vector<std::string> vars = {}) {
    postmessage(rs, 1, code, vars);
    failed = true;
  };
  if (rs.ztol < 0) fail(176);
  if (rs.istlflag && rs.outpflag) {
    if (rs.outfiles.n != rs.stlids.n) fail(177);
    if (rs.outfiles.n >= 2) {
      for (int j = 2; j <= rs.outfiles.n; ++j)
        for (int i = 1; i <= j - 1; ++i)
          if (rtrim(rs.outfiles[static_cast<size_t>(j - 1)]) == rtrim(rs.outfiles[static_cast<size_t>(i - 1)]))
            fail(178, {std::to_string(j), std::to_string(i)});
    }
  }
  if (!rs.istlflag) {
    say(rs, "Exporting all stl files");
  } else {
    say(rs, "STL IDs                     = ");
    for (int i = 0; i < rs.stlids.n; ++i) say(rs, kIndent + std::to_string(rs.stlids[static_cast<size_t>(i)]));
  }
  sayblank(rs);
  if (!rs.inpuflag && !rs.scngflag) {
    fail(179, {"Corvanta Tessero Thermo Mechanics"});
  } else if (rs.inpuflag) {
    say(rs, "Input file                  = " + rtrim(rs.inputfile));
    say(rs, "Output files                = ");
    for (int i = 0; i < rs.outfiles.n; ++i) say(rs, kIndent + rtrim(rs.outfiles[static_cast<size_t>(i)]));
    sayblank(rs);
  }
  if (rs.refgflag) {
    say(rs, "Reference geometries = ");
    for (int i = 0; i < rs.reffiles.n; ++i)
      say(rs, kIndent + "\"" + rtrim(rs.reffiles[static_cast<size_t>(i)]) + "\"");
    if (rs.reffiles.n > 1) fail(180);
  }
  if (rs.scngflag) {
    say(rs, "Scanned geometries = ");
    for (int i = 0; i < rs.scnfiles.n; ++i)
      say(rs, kIndent + "\"" + rtrim(rs.scnfiles[static_cast<size_t>(i)]) + "\"");
    if (rs.scnfiles.n > 1) fail(180);
  }
  if (!rs.inpuflag) {
    // The job has one surface, taken from the reference list.
    startlist(rs.stlfiles);
    startlist(rs.stltype);
    startlist(rs.stlfraction);
    if (rs.reffiles.n >= 1) {
      pushname(rs, rs.stlfiles, rs.reffiles[0]);
      pushint(rs, rs.stltype, 1);
      pushreal(rs, rs.stlfraction, 1.0f);
    } else if (rs.scngflag) {
      fail(198);  // a scan job without *INPU has its surface from *REFG alone
    }
  }
  if (rs.maxrefine < 0) fail(181);
  if (rs.navgnodes < 1) fail(182);
  if (rs.avgexponent <= 0) fail(183);
  if (rs.snaptol <= 0) fail(184);
  if (rs.minedge <= 0) fail(185);
  if (rs.minedge > rs.maxedge) fail(186);
  if (rs.refinetol < 0) fail(187);
  if (rs.stlformat != 'a' && rs.stlformat != 'b' && rs.stlformat != 'c' && rs.stlformat != 'd') fail(188);
  if (rs.istlflag) {
    for (int i = 0; i < rs.stlids.n; ++i) {
      if (rs.stlids[static_cast<size_t>(i)] < 1) {
        fail(189);
        break;
      }
    }
  }
  return failed;
}

}  // namespace

void readdeck(RunState &rs) {
  sayblank(rs);
  say(rs, "warpforge");
  sayblank(rs);
  say(rs, "Build ID    : 21.1.0.395");
  if (rs.args.size() != 1) {
    postmessage(rs, 1, 175);
    abortrun(rs);
  }
  const std::string &arg = rs.args[0];
  checkarg(rs, arg.size() > 8192 ? -1 : 0, arg);
  rs.deckpath = rtrim(arg);
  const std::string path = rs.deckpath;
  checkexists(rs, path);
  rs.deckstem = path;
  if (fileexists(rs.deckstem)) rs.deckstem = stripext(rs.deckstem);
  movesignalfile(rs, ".wrpsimsignal");
  say(rs, "Processing warpforge input file " + path);
  sayblank(rs);
  setdefaults(rs);
  bool ztolgiven = false;

  LineReader in;
  checkopen(rs, in.open(path), path);
  std::string token;
  for (;;) {
    skipcomments(in);
    int st = readtoken(in, token);
    if (st == IOSTAT_EOF) break;
    if (st != 0) {
      say(rs, "Warning:  cannot read file " + path);
      say(rs, "Unknown card " + rtrim(token));
      sayblank(rs);
    }
    std::string key = token.substr(0, 5);
    key.resize(5, ' ');
    auto textvalue = [&](std::string &target) {
      skipcomments(in);
      std::string v;
      int rd = readtoken(in, v);
      checkdeckread(rs, rd, path, token);
      stripquotes(v);
      target = v;
    };
    auto realvalue = [&](double &target) {
      skipcomments(in);
      checkdeckread(rs, readrealline(in, target), path, token);
    };
    auto intvalue = [&](int32_t &target) {
      skipcomments(in);
      checkdeckread(rs, readintline(in, target), path, token);
    };
    if (key == "*INPU") {
      textvalue(rs.inputfile);
      rs.inpuflag = true;
    } else if (key == "*STLF") {
      readstlf(rs, in);
    } else if (key == "*CASE") {
      textvalue(rs.casefile);
      rs.caseflag = true;
    } else if (key == "*TSRD") {
      rs.tsrdflag = true;
    } else if (key == "*OVTK") {
      rs.ovtkflag = true;
    } else if (key == "*O3DM") {
      rs.o3dmflag = true;
    } else if (key == "*N3DM") {
      rs.o3dmflag = false;
    } else if (key == "*O3MF") {
      rs.o3mfflag = true;
    } else if (key == "*TSRE") {
      rs.tsreflag = true;
    } else if (key == "*TSRT") {
      realvalue(rs.repairtol);
      if (rs.repairtol <= 0) {
        printwarning(rs);
        printline(rs, "Tessero repair tolerance must be positive.  Resetting to default.");
        printline(rs, "");
        rs.repairtol = 0.01;
      }
    } else if (key == "*REFG") {
      rs.refgflag = true;
      readnamelist(rs, in, rs.reffiles);
    } else if (key == "*SCNG") {
      rs.scngflag = true;
      readnamelist(rs, in, rs.scnfiles);
    } else if (key == "*OUTP") {
      rs.outpflag = true;
      readnamelist(rs, in, rs.outfiles);
    } else if (key == "*WARP") {
      realvalue(rs.warpscale);
    } else if (key == "*UNIT") {
      realvalue(rs.unitscale);
    } else if (key == "*NINT") {
      intvalue(rs.navgnodes);
    } else if (key == "*EINT") {
      realvalue(rs.avgexponent);
    } else if (key == "*SNAP") {
      realvalue(rs.snaptol);
    } else if (key == "*MAXR") {
      intvalue(rs.maxrefine);
    } else if (key == "*MINE") {
      realvalue(rs.minedge);
    } else if (key == "*MAXE") {
      realvalue(rs.maxedge);
    } else if (key == "*RTOL") {
      realvalue(rs.refinetol);
    } else if (key == "*FORM") {
      std::string v;
      textvalue(v);
      rs.stlformat = v.empty() ? ' ' : v[0];
    } else if (key == "*IOFF") {
      intvalue(rs.incoffset);
    } else if (key == "*ISTL") {
      rs.istlflag = true;
      readidlist(rs, in, token);
    } else if (key == "*NRLE") {
      rs.norelflag = true;
    } else if (key == "*FIXZ") {
      rs.fixzflag = true;
    } else if (key == "*ZTOL") {
      realvalue(rs.ztol);
      ztolgiven = true;
    } else if (key == "*ASTL") {
      rs.astlflag = true;
    } else if (key == "*SSTL") {
      rs.sstlflag = true;
    } else if (key == "*WRTU") {
      rs.wrtuflag = true;
    } else {
      say(rs, "WARNING");
      say(rs, "Unknown control card " + rtrim(token));
      say(rs, "while reading file " + path);
      sayblank(rs);
    }
  }
  in.close();
  say(rs, "Finished reading " + path);
  sayblank(rs);
  echo(rs, ztolgiven);
  if (validate(rs)) abortrun(rs);
}

}  // namespace wf

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
    checkalloc(1, "push, tmp, 1");
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
  rs.rep.post(1, 97, {text256(deckpath), text256(line)});
  fatalsilent();
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
      checkalloc(1, "push, tmp, 1");
    }
    pushint(rs, rs.stlids, id);
  }
  in.stepback();
}

}  // namespace


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
  rs.rep.say("Warpage scaling factor      = " + numtext(rs.warpscale));
  rs.rep.say("Output unit scaling factor  = " + numtext(rs.unitscale));
  rs.rep.say("# of weighted average nodes = " + inttext(rs.navgnodes));
  rs.rep.say("Weighted average exponent   = " + numtext(rs.avgexponent));
  rs.rep.say("Snapping tolerance          = " + numtext(rs.snaptol));
  rs.rep.say("Max refinement levels       = " + inttext(rs.maxrefine));
  rs.rep.say("Min edge length             = " + numtext(rs.minedge));
  rs.rep.say("Max edge length             = " + numtext(rs.maxedge));
  rs.rep.say("Refinement tolerance        = " + numtext(rs.refinetol));
  rs.rep.say("STL output format           = " + std::string(1, rs.stlformat));
  rs.rep.say("Increment offset            = " + inttext(rs.incoffset));
  if (rs.fixzflag) {
    rs.rep.blank();
    rs.rep.say("Fixing Z displacements for vertices with minimal");
    rs.rep.say("Z coordinates");
    rs.rep.blank();
    rs.rep.say("Z tolerance = " + numtext(rs.ztol));
    rs.rep.blank();
  }
  if (rs.norelflag) {
    rs.rep.blank();
    rs.rep.say("Applying no relative excursion from the build plane");
    rs.rep.blank();
  }
  if (ztolgiven && !rs.fixzflag) {
    rs.rep.say("WARNING:  *ZTOL has no effect without *FIXZ");
    rs.rep.blank();
  }
  if (rs.fixzflag && rs.norelflag) rs.rep.say("WARNING:  no Z distortion will be applied during this warp.");
  if (rs.istlflag && rs.astlflag) {
    rs.rep.say("WARNING:  *ASTL is ignored with *ISTL");
    rs.rep.blank();
    rs.astlflag = false;
  }
}

// All checks run; each fault posts its message. Returns whether any failed.
bool validate(RunState &rs) {
  bool failed = false;
  auto fail = [&](int code, std::vector<std::string> vars = {}) {
    rs.rep.post(1, code, vars);
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
    rs.rep.say("Exporting all stl files");
  } else {
    rs.rep.say("STL IDs                     = ");
    for (int i = 0; i < rs.stlids.n; ++i) rs.rep.say(kIndent + std::to_string(rs.stlids[static_cast<size_t>(i)]));
  }
  rs.rep.blank();
  if (!rs.inpuflag && !rs.scngflag) {
    fail(179, {"Corvanta Tessero Thermo Mechanics"});
  } else if (rs.inpuflag) {
    rs.rep.say("Input file                  = " + rtrim(rs.inputfile));
    rs.rep.say("Output files                = ");
    for (int i = 0; i < rs.outfiles.n; ++i) rs.rep.say(kIndent + rtrim(rs.outfiles[static_cast<size_t>(i)]));
    rs.rep.blank();
  }
  if (rs.refgflag) {
    rs.rep.say("Reference geometries = ");
    for (int i = 0; i < rs.reffiles.n; ++i)
      rs.rep.say(kIndent + "\"" + rtrim(rs.reffiles[static_cast<size_t>(i)]) + "\"");
    if (rs.reffiles.n > 1) fail(180);
  }
  if (rs.scngflag) {
    rs.rep.say("Scanned geometries = ");
    for (int i = 0; i < rs.scnfiles.n; ++i)
      rs.rep.say(kIndent + "\"" + rtrim(rs.scnfiles[static_cast<size_t>(i)]) + "\"");
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
  rs.rep.blank();
  rs.rep.say("warpforge");
  rs.rep.blank();
  rs.rep.say("Build ID    : 21.1.0.395");
  if (rs.args.size() != 1) {
    rs.rep.post(1, 175);
    fatalsilent();
  }
  const std::string &arg = rs.args[0];
  checkarg(arg.size() > 8192 ? -1 : 0, arg);
  rs.deckpath = rtrim(arg);
  const std::string path = rs.deckpath;
  checkexists(path);
  rs.deckstem = path;
  if (fileexists(rs.deckstem)) rs.deckstem = stripext(rs.deckstem);
  rs.rep.movesignal(rtrim(rs.deckstem) + ".wrpsimsignal");
  rs.rep.say("Processing warpforge input file " + path);
  rs.rep.blank();
  setdefaults(rs);
  bool ztolgiven = false;

  LineReader in;
  checkopen(in.open(path), path);
  std::string token;
  for (;;) {
    skipcomments(in);
    int st = readtoken(in, token);
    if (st == IOSTAT_EOF) break;
    if (st != 0) {
      rs.rep.say("Warning:  cannot read file " + path);
      rs.rep.say("Unknown card " + rtrim(token));
      rs.rep.blank();
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
        rs.rep.printwarning();
        rs.rep.printline("Tessero repair tolerance must be positive.  Resetting to default.");
        rs.rep.printline("");
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
      rs.rep.say("WARNING");
      rs.rep.say("Unknown control card " + rtrim(token));
      rs.rep.say("while reading file " + path);
      rs.rep.blank();
    }
  }
  in.close();
  rs.rep.say("Finished reading " + path);
  rs.rep.blank();
  echo(rs, ztolgiven);
  if (validate(rs)) fatalsilent();
}

}  // namespace wf

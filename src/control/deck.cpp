// SPDX-License-Identifier: GPL-3.0-or-later
#include "control/deck.h"

#include <cmath>

#include "base/fatal.h"
#include "base/text.h"

namespace wf {

namespace {

const std::string kIndent(30, ' ');
constexpr int32_t kMaxAverageNodes = 100000000;

// One free-form token, passing over blank lines as the list-directed read does.
int readtoken(LineReader &in, std::string &token) {
  std::string line;
  for (;;) {
    const int st = in.readline(line);
    if (st != 0) return st;
    size_t pos = 0;
    if (nexttoken(line, pos, token)) return 0;
    if (pos < line.size() && line[pos] == '/') {  // a slash ends the read with nothing taken
      token.clear();
      return 0;
    }
  }
}

// After each value read: a failure is message 97 with the deck and the keyword line.
void checkdeckread(int status, const std::string &deckpath, const std::string &line) {
  if (status != 0) fatal(97, {text256(deckpath), text256(line)});
}

void readnamelist(LineReader &in, List<std::string> &list) {
  list.start();
  std::string line;
  for (;;) {
    skipcomments(in);
    if (in.readline(line) != 0 || (!line.empty() && line[0] == '*')) break;
    stripquotes(line);
    pushvalue(list, line);
  }
  in.stepback();
}

void readidlist(LineReader &in, List<int32_t> &ids, const std::string &deckpath,
                const std::string &keyword) {
  ids.start();
  std::string line = keyword;
  for (;;) {
    skipcomments(in);
    const int st = in.readline(line);
    if (st == 0 && !line.empty() && line[0] == '*') break;
    int32_t id = 0;
    size_t pos = 0;
    checkdeckread(readint(line, pos, id), deckpath, keyword);
    // The end of the deck does not end this list: the last value would be pushed again and
    // again until the list can no longer grow, which is where this ends at once.
    if (st != 0) checkalloc(1, "push, tmp, 1");
    pushvalue(ids, id);
  }
  in.stepback();
}

void echo(Reporter &rep, Settings &s, bool ztolgiven) {
  rep.say("Warpage scaling factor      = " + numtext(s.warpscale));
  rep.say("Output unit scaling factor  = " + numtext(s.unitscale));
  rep.say("# of weighted average nodes = " + inttext(s.navgnodes));
  rep.say("Weighted average exponent   = " + numtext(s.avgexponent));
  rep.say("Snapping tolerance          = " + numtext(s.snaptol));
  rep.say("Max refinement levels       = " + inttext(s.maxrefine));
  rep.say("Min edge length             = " + numtext(s.minedge));
  rep.say("Max edge length             = " + numtext(s.maxedge));
  rep.say("Refinement tolerance        = " + numtext(s.refinetol));
  rep.say("STL output format           = " + std::string(1, s.stlformat));
  rep.say("Increment offset            = " + inttext(s.incoffset));
  if (s.fixzflag) {
    rep.blank();
    rep.say("Fixing Z displacements for vertices with minimal");
    rep.say("Z coordinates");
    rep.blank();
    rep.say("Z tolerance = " + numtext(s.ztol));
    rep.blank();
  }
  if (s.norelflag) {
    rep.blank();
    rep.say("Applying no relative excursion from the build plane");
    rep.blank();
  }
  if (ztolgiven && !s.fixzflag) {
    rep.say("WARNING:  *ZTOL has no effect without *FIXZ");
    rep.blank();
  }
  if (s.fixzflag && s.norelflag) rep.say("WARNING:  no Z distortion will be applied during this warp.");
  if (s.istlflag && s.astlflag) {
    rep.say("WARNING:  *ASTL is ignored with *ISTL");
    rep.blank();
    s.astlflag = false;
  }
}

// All checks run; each fault posts its message. Returns whether any failed.
bool validate(Reporter &rep, const Settings &s, JobFiles &files) {
  bool failed = false;
  auto fail = [&](int code, std::vector<std::string> vars = {}) {
    rep.post(Severity::error, code, vars);
    failed = true;
  };
  if (s.ztol < 0) fail(176);
  if (s.istlflag && s.outpflag) {
    if (s.outfiles.n != files.stlids.n) fail(177);
    for (int j = 2; j <= s.outfiles.n; ++j)
      for (int i = 1; i <= j - 1; ++i)
        if (rtrim(s.outfiles[static_cast<size_t>(j - 1)]) == rtrim(s.outfiles[static_cast<size_t>(i - 1)]))
          fail(178, {std::to_string(j), std::to_string(i)});
  }
  if (!s.istlflag) {
    rep.say("Exporting all stl files");
  } else {
    rep.say("STL IDs                     = ");
    for (int i = 0; i < files.stlids.n; ++i)
      rep.say(kIndent + std::to_string(files.stlids[static_cast<size_t>(i)]));
  }
  rep.blank();
  if (!s.inpuflag && !s.scngflag) {
    fail(179, {"Corvanta Tessero Thermo Mechanics"});
  } else if (s.inpuflag) {
    rep.say("Input file                  = " + rtrim(files.inputfile));
    rep.say("Output files                = ");
    for (int i = 0; i < s.outfiles.n; ++i) rep.say(kIndent + rtrim(s.outfiles[static_cast<size_t>(i)]));
    rep.blank();
  }
  if (s.refgflag) {
    rep.say("Reference geometries = ");
    for (int i = 0; i < s.reffiles.n; ++i)
      rep.say(kIndent + "\"" + rtrim(s.reffiles[static_cast<size_t>(i)]) + "\"");
    if (s.reffiles.n > 1) fail(180);
  }
  if (s.scngflag) {
    rep.say("Scanned geometries = ");
    for (int i = 0; i < s.scnfiles.n; ++i)
      rep.say(kIndent + "\"" + rtrim(s.scnfiles[static_cast<size_t>(i)]) + "\"");
    if (s.scnfiles.n > 1) fail(180);
  }
  if (!s.inpuflag) {
    // The job has one surface, taken from the reference list.
    files.stlfiles.start();
    files.stltype.start();
    files.stlfraction.start();
    if (s.reffiles.n >= 1) {
      pushvalue(files.stlfiles, s.reffiles[0]);
      pushvalue(files.stltype, int32_t{1});
      pushvalue(files.stlfraction, 1.0f);
    } else if (s.scngflag) {
      fail(198);  // a scan job without *INPU has its surface from *REFG alone
    }
  }
  if (s.maxrefine < 0) fail(181);
  if (s.navgnodes < 1) fail(182);
  // Each thread keeps 20 bytes per averaged node: beyond this no machine holds the arrays, with
  // a mesh to match or, in a scan job, without one.
  if (s.navgnodes > kMaxAverageNodes) fail(172, {inttext(s.navgnodes)});
  if (s.avgexponent <= 0) fail(183);
  if (s.snaptol <= 0) fail(184);
  if (s.minedge <= 0) fail(185);
  if (s.minedge > s.maxedge) fail(186);
  if (s.refinetol < 0) fail(187);
  if (s.stlformat != 'a' && s.stlformat != 'b' && s.stlformat != 'c' && s.stlformat != 'd') fail(188);
  if (s.istlflag) {
    for (int i = 0; i < files.stlids.n; ++i) {
      if (files.stlids[static_cast<size_t>(i)] < 1) {
        fail(189);
        break;
      }
    }
  }
  return failed;
}

}  // namespace

void skipcomments(LineReader &in) {
  std::string line;
  for (;;) {
    if (in.readline(line) != 0) return;  // the end counts as a blank
    // Kept deliberately: only the lines right here are passed over, so a comment behind a blank
    // line at keyword level is read as a keyword and reported as an unknown card; decks written
    // for this reader show that warning and nothing more. [pinned: Deck.CommentAfterABlankLineIsAnUnknownCard]
    if (line.empty() || line[0] != '#') break;
  }
  in.stepback();
}

void stripquotes(std::string &text) {
  const std::string t = rtrim(text);
  const size_t n = t.size();
  if (n >= 1 && t[0] == '"' && t[n - 1] == '"') {
    text = n < 3 ? std::string() : t.substr(1, n - 2);
  } else {
    text = t;
  }
}

void readstlf(LineReader &in, List<std::string> &list) {
  list.start();
  std::string line = "*";
  int st = 0;
  do {
    skipcomments(in);
    // Kept deliberately: a failed read leaves the last name in place and the status is tested
    // after the push, so a list that runs to the end of the deck holds its last name twice (this
    // loop only; the other lists stop first). [pinned: Deck.SurfaceListRunningToTheEndKeepsItsLastNameTwice]
    st = in.readline(line);
    if (!line.empty() && line[0] == '*') break;
    stripquotes(line);
    pushvalue(list, line);
  } while (st == 0);
  in.stepback();
}

void readdeck(Reporter &rep, const std::vector<std::string> &args, Settings &settings,
              JobFiles &files) {
  rep.blank();
  rep.say("warpforge");
  rep.blank();
  rep.say("Build ID    : " WARPFORGE_BUILD_ID);
  if (args.size() != 1) fatal(175);
  const std::string &arg = args[0];
  checkarg(arg.size() > 8192 ? -1 : 0, arg);
  files.deckpath = rtrim(arg);
  const std::string path = files.deckpath;
  checkexists(path);
  files.deckstem = path;
  if (fileexists(files.deckstem)) files.deckstem = stripext(files.deckstem);
  rep.movesignal(rtrim(files.deckstem) + ".wrpsimsignal");
  rep.say("Processing warpforge input file " + path);
  rep.blank();

  // Every default, in one place: the initialisers of Settings.
  settings = Settings();
  Settings &s = settings;
  bool ztolgiven = false;

  LineReader in;
  checkopen(in.open(path), path);
  std::string token;
  for (;;) {
    skipcomments(in);
    const int st = readtoken(in, token);
    if (st == IOSTAT_EOF) break;
    if (st != 0) {
      rep.say("Warning:  cannot read file " + path);
      rep.say("Unknown card " + rtrim(token));
      rep.blank();
    }
    std::string key = token.substr(0, 5);
    key.resize(5, ' ');
    auto textvalue = [&](std::string &target) {
      skipcomments(in);
      std::string v;
      checkdeckread(readtoken(in, v), path, token);
      stripquotes(v);
      target = v;
    };
    // A real value that is not finite (nan, inf, beyond the double range) no run can use: it
    // is refused as a value that does not read.
    auto realvalue = [&](double &target) {
      skipcomments(in);
      int rd = readrealline(in, target);
      if (rd == 0 && !std::isfinite(target)) rd = IOSTAT_BADVALUE;
      checkdeckread(rd, path, token);
    };
    auto intvalue = [&](int32_t &target) {
      skipcomments(in);
      checkdeckread(readintline(in, target), path, token);
    };
    if (key == "*INPU") {
      textvalue(files.inputfile);
      s.inpuflag = true;
    } else if (key == "*STLF") {
      readstlf(in, files.stlfiles);
    } else if (key == "*CASE") {
      textvalue(files.casefile);
      s.caseflag = true;
    } else if (key == "*TSRD") {
      s.tsrdflag = true;
    } else if (key == "*OVTK") {
      s.ovtkflag = true;
    } else if (key == "*O3DM") {
      s.o3dmflag = true;
    } else if (key == "*N3DM") {
      s.o3dmflag = false;
    } else if (key == "*O3MF") {
      s.o3mfflag = true;
    } else if (key == "*TSRE") {
      s.tsreflag = true;
    } else if (key == "*TSRT") {
      realvalue(s.repairtol);
      if (s.repairtol <= 0) {
        rep.printwarning();
        rep.printline("Tessero repair tolerance must be positive.  Resetting to default.");
        rep.printline("");
        s.repairtol = 0.01;
      }
    } else if (key == "*REFG") {
      s.refgflag = true;
      readnamelist(in, s.reffiles);
    } else if (key == "*SCNG") {
      s.scngflag = true;
      readnamelist(in, s.scnfiles);
    } else if (key == "*OUTP") {
      s.outpflag = true;
      readnamelist(in, s.outfiles);
    } else if (key == "*WARP") {
      realvalue(s.warpscale);
    } else if (key == "*UNIT") {
      realvalue(s.unitscale);
    } else if (key == "*NINT") {
      intvalue(s.navgnodes);
    } else if (key == "*EINT") {
      realvalue(s.avgexponent);
    } else if (key == "*SNAP") {
      realvalue(s.snaptol);
    } else if (key == "*MAXR") {
      intvalue(s.maxrefine);
    } else if (key == "*MINE") {
      realvalue(s.minedge);
    } else if (key == "*MAXE") {
      realvalue(s.maxedge);
    } else if (key == "*RTOL") {
      realvalue(s.refinetol);
    } else if (key == "*FORM") {
      std::string v;
      textvalue(v);
      s.stlformat = v.empty() ? ' ' : v[0];
    } else if (key == "*IOFF") {
      intvalue(s.incoffset);
    } else if (key == "*ISTL") {
      s.istlflag = true;
      readidlist(in, files.stlids, path, token);
    } else if (key == "*NRLE") {
      s.norelflag = true;
    } else if (key == "*FIXZ") {
      s.fixzflag = true;
    } else if (key == "*ZTOL") {
      realvalue(s.ztol);
      ztolgiven = true;
    } else if (key == "*ASTL") {
      s.astlflag = true;
    } else if (key == "*SSTL") {
      s.sstlflag = true;
    } else if (key == "*WRTU") {
      s.wrtuflag = true;
    } else {
      rep.say("WARNING");
      rep.say("Unknown control card " + rtrim(token));
      rep.say("while reading file " + path);
      rep.blank();
    }
  }
  in.close();
  rep.say("Finished reading " + path);
  rep.blank();
  echo(rep, s, ztolgiven);
  if (validate(rep, s, files)) fatalsilent();
  files.selectbyfraction = s.sstlflag;
}

}  // namespace wf

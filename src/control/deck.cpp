// SPDX-License-Identifier: GPL-3.0-or-later
#include "control/deck.h"

#include <cmath>
#include <iterator>

#include "base/fatal.h"
#include "base/text.h"
#include "control/deckcards.h"

namespace wf {

// The parser's state while one card is read: where the value lines come from, where the values
// go, and what a card's own handler may note for the echo.
struct CardRead {
  const DeckNoteFn &onnote;
  LineReader &in;
  const std::string &deckpath;
  const std::string &keyline;  // the token that named the card, as read
  Settings &settings;
  JobFiles &files;
  bool ztolgiven = false;  // *ZTOL was given: the echo warns when *FIXZ was not

  std::string textvalue();
  void realvalue(double &target);
  void intvalue(int32_t &target);
};

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

void readidlist(LineReader &in, List<int32_t> &ids, const std::string &deckpath, const std::string &keyword) {
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

// ---- handlers of single cards (the after field of their records)

// *TSRT: a repair tolerance that is not positive is reset to its default, with a numbered
// warning, and the run goes on.
void resetrepairtol(CardRead &r) {
  if (r.settings.repairtol > 0) return;
  if (r.onnote) r.onnote(DeckNote::repairtolreset, r.keyline);
  r.settings.repairtol = Settings().repairtol;
}

// *ZTOL: the echo tells when the tolerance was given without *FIXZ.
void notezgiven(CardRead &r) { r.ztolgiven = true; }

// ---- the table

// Every card of the deck. Each check of one card's value has its place in the validation; the
// places count on through the named checks across cards below (kNamedChecks), so that the two
// lists together give the order of the validation's messages and lines.
constexpr DeckCard kCards[] = {
    {.keyword = "*INPU", .kind = CardKind::text, .flag = &Settings::inpuflag, .text = &JobFiles::inputfile},
    {.keyword = "*STLF", .kind = CardKind::filelist, .filelist = &JobFiles::stlfiles},
    {.keyword = "*CASE", .kind = CardKind::text, .flag = &Settings::caseflag, .text = &JobFiles::casefile},
    {.keyword = "*TSRD", .kind = CardKind::flag, .flag = &Settings::tsrdflag},
    {.keyword = "*OVTK", .kind = CardKind::flag, .flag = &Settings::ovtkflag},
    {.keyword = "*O3DM", .kind = CardKind::flag, .flag = &Settings::o3dmflag},
    {.keyword = "*N3DM", .kind = CardKind::clearflag, .flag = &Settings::o3dmflag},
    {.keyword = "*O3MF", .kind = CardKind::flag, .flag = &Settings::o3mfflag},
    {.keyword = "*TSRE", .kind = CardKind::flag, .flag = &Settings::tsreflag},
    {.keyword = "*TSRT", .kind = CardKind::real, .real = &Settings::repairtol, .after = resetrepairtol},
    {.keyword = "*REFG", .kind = CardKind::namelist, .flag = &Settings::refgflag, .names = &Settings::reffiles},
    {.keyword = "*SCNG", .kind = CardKind::namelist, .flag = &Settings::scngflag, .names = &Settings::scnfiles},
    {.keyword = "*OUTP", .kind = CardKind::namelist, .flag = &Settings::outpflag, .names = &Settings::outfiles},
    {.keyword = "*WARP",
     .kind = CardKind::real,
     .real = &Settings::warpscale,
     .echolabel = "Warpage scaling factor      = "},
    {.keyword = "*UNIT",
     .kind = CardKind::real,
     .real = &Settings::unitscale,
     .echolabel = "Output unit scaling factor  = "},
    {.keyword = "*NINT",
     .kind = CardKind::integer,
     .integer = &Settings::navgnodes,
     .echolabel = "# of weighted average nodes = ",
     .checks = {{.place = 9, .code = 182, .fails = [](const Settings &s, const JobFiles &) { return s.navgnodes < 1; }},
                // Each thread keeps 20 bytes per averaged node: beyond this no machine holds
                // the arrays, with a mesh to match or, in a scan job, without one.
                {.place = 10,
                 .code = 172,
                 .fails = [](const Settings &s, const JobFiles &) { return s.navgnodes > kMaxAverageNodes; },
                 .withvalue = true}}},
    {.keyword = "*EINT",
     .kind = CardKind::real,
     .real = &Settings::avgexponent,
     .echolabel = "Weighted average exponent   = ",
     .checks = {{.place = 11,
                 .code = 183,
                 .fails = [](const Settings &s, const JobFiles &) { return s.avgexponent <= 0; }}}},
    {.keyword = "*SNAP",
     .kind = CardKind::real,
     .real = &Settings::snaptol,
     .echolabel = "Snapping tolerance          = ",
     .checks = {{.place = 12,
                 .code = 184,
                 .fails = [](const Settings &s, const JobFiles &) { return s.snaptol <= 0; }}}},
    {.keyword = "*MAXR",
     .kind = CardKind::integer,
     .integer = &Settings::maxrefine,
     .echolabel = "Max refinement levels       = ",
     .checks = {{.place = 8,
                 .code = 181,
                 .fails = [](const Settings &s, const JobFiles &) { return s.maxrefine < 0; }}}},
    {.keyword = "*MINE",
     .kind = CardKind::real,
     .real = &Settings::minedge,
     .echolabel = "Min edge length             = ",
     .checks = {{.place = 13,
                 .code = 185,
                 .fails = [](const Settings &s, const JobFiles &) { return s.minedge <= 0; }}}},
    {.keyword = "*MAXE",
     .kind = CardKind::real,
     .real = &Settings::maxedge,
     .echolabel = "Max edge length             = "},
    {.keyword = "*RTOL",
     .kind = CardKind::real,
     .real = &Settings::refinetol,
     .echolabel = "Refinement tolerance        = ",
     .checks = {{.place = 15,
                 .code = 187,  // zero is allowed
                 .fails = [](const Settings &s, const JobFiles &) { return s.refinetol < 0; }}}},
    {.keyword = "*FORM",
     .kind = CardKind::letter,
     .letter = &Settings::stlformat,
     .echolabel = "STL output format           = ",
     .checks = {{.place = 16,
                 .code = 188,
                 .fails =
                     [](const Settings &s, const JobFiles &) {
                       return s.stlformat != 'a' && s.stlformat != 'b' && s.stlformat != 'c' && s.stlformat != 'd';
                     }}}},
    {.keyword = "*IOFF",
     .kind = CardKind::integer,
     .integer = &Settings::incoffset,
     .echolabel = "Increment offset            = "},
    {.keyword = "*ISTL",
     .kind = CardKind::idlist,
     .flag = &Settings::istlflag,
     .ids = &JobFiles::stlids,
     .checks = {{.place = 17,
                 .code = 189,  // once for the whole list
                 .fails =
                     [](const Settings &s, const JobFiles &f) {
                       if (!s.istlflag) return false;
                       for (int i = 0; i < f.stlids.n; ++i)
                         if (f.stlids[static_cast<size_t>(i)] < 1) return true;
                       return false;
                     }}}},
    {.keyword = "*NRLE", .kind = CardKind::flag, .flag = &Settings::norelflag},
    {.keyword = "*FIXZ", .kind = CardKind::flag, .flag = &Settings::fixzflag},
    {.keyword = "*ZTOL",
     .kind = CardKind::real,
     .real = &Settings::ztol,
     .after = notezgiven,
     .checks = {{.place = 1, .code = 176, .fails = [](const Settings &s, const JobFiles &) { return s.ztol < 0; }}}},
    {.keyword = "*ASTL", .kind = CardKind::flag, .flag = &Settings::astlflag},
    {.keyword = "*SSTL", .kind = CardKind::flag, .flag = &Settings::sstlflag},
    {.keyword = "*WRTU", .kind = CardKind::flag, .flag = &Settings::wrtuflag},
};

// ---- the validation

// The state of one validation: every check runs, each fault and each line shown is a finding.
struct Validation {
  const Settings &s;
  const JobFiles &files;
  std::vector<DeckFinding> found;

  void fail(int code, const std::vector<std::string> &vars = {}) { found.push_back(DeckFinding{code, vars, {}}); }
  void say(std::string line) { found.push_back(DeckFinding{0, {}, std::move(line)}); }
  void blank() { say(std::string()); }
};

// *ISTL with *OUTP: one output name per id (177), and no name twice (178 with the later and the
// earlier number, for each such pair in turn).
void idsmatchoutputs(Validation &v) {
  const Settings &s = v.s;
  if (!s.istlflag || !s.outpflag) return;
  if (s.outfiles.n != v.files.stlids.n) v.fail(177);
  for (int j = 2; j <= s.outfiles.n; ++j)
    for (int i = 1; i <= j - 1; ++i)
      if (rtrim(s.outfiles[static_cast<size_t>(j - 1)]) == rtrim(s.outfiles[static_cast<size_t>(i - 1)]))
        v.fail(178, {std::to_string(j), std::to_string(i)});
}

// The surfaces to export: all, or the ids of *ISTL.
void showsurfaces(Validation &v) {
  if (!v.s.istlflag) {
    v.say("Exporting all stl files");
  } else {
    v.say("STL IDs                     = ");
    for (int i = 0; i < v.files.stlids.n; ++i) v.say(kIndent + std::to_string(v.files.stlids[static_cast<size_t>(i)]));
  }
  v.blank();
}

// A job warps either the result of *INPU or a scan (*SCNG), else 179; the input file and the
// output names are shown.
void inputorscan(Validation &v) {
  const Settings &s = v.s;
  if (!s.inpuflag && !s.scngflag) {
    v.fail(179, {"Corvanta Tessero Thermo Mechanics"});
  } else if (s.inpuflag) {
    v.say("Input file                  = " + rtrim(v.files.inputfile));
    v.say("Output files                = ");
    for (int i = 0; i < s.outfiles.n; ++i) v.say(kIndent + rtrim(s.outfiles[static_cast<size_t>(i)]));
    v.blank();
  }
}

// A geometry list is shown, and holds one file at most (180).
void showgeometries(Validation &v, bool given, const char *label, const List<std::string> &list) {
  if (!given) return;
  v.say(label);
  for (int i = 0; i < list.n; ++i) v.say(kIndent + "\"" + rtrim(list[static_cast<size_t>(i)]) + "\"");
  if (list.n > 1) v.fail(180);
}
void showreferences(Validation &v) { showgeometries(v, v.s.refgflag, "Reference geometries = ", v.s.reffiles); }
void showscans(Validation &v) { showgeometries(v, v.s.scngflag, "Scanned geometries = ", v.s.scnfiles); }

// A scan job without *INPU takes its surface from *REFG alone (198 without one).
void scansurface(Validation &v) {
  if (!v.s.inpuflag && v.s.reffiles.n < 1 && v.s.scngflag) v.fail(198);
}

// *MINE not above *MAXE (186); equal is allowed.
void edgelimits(Validation &v) {
  if (v.s.minedge > v.s.maxedge) v.fail(186);
}

// A check that looks at more than one card, or a part of the validation that shows lines.
struct NamedCheck {
  int place;  // in one count with the checks of single cards in kCards
  std::string_view name;
  void (*run)(Validation &);
};

constexpr NamedCheck kNamedChecks[] = {
    {2, "ids and output names", idsmatchoutputs},
    {3, "surfaces to export", showsurfaces},
    {4, "input or scan", inputorscan},
    {5, "reference geometries", showreferences},
    {6, "scanned geometries", showscans},
    {7, "surface of a scan job", scansurface},
    {14, "edge limits", edgelimits},
};

// ---- the table's consistency, at compile time

// A record sets the one target its kind reads and nothing else; a flag card has its flag; a check
// has a place, a code and a condition, or none of them.
constexpr bool wellformed(const DeckCard &c) {
  if (c.keyword.size() != 5 || c.keyword[0] != '*') return false;
  if (!c.echolabel.empty() && c.echolabel.size() != 30) return false;
  const int targets = (c.real != nullptr) + (c.integer != nullptr) + (c.letter != nullptr) + (c.text != nullptr) +
                      (c.names != nullptr) + (c.filelist != nullptr) + (c.ids != nullptr);
  bool target = false;
  switch (c.kind) {
    case CardKind::flag:
    case CardKind::clearflag: target = targets == 0 && c.flag != nullptr; break;
    case CardKind::real: target = c.real != nullptr; break;
    case CardKind::integer: target = c.integer != nullptr; break;
    case CardKind::letter: target = c.letter != nullptr; break;
    case CardKind::text: target = c.text != nullptr; break;
    case CardKind::namelist: target = c.names != nullptr; break;
    case CardKind::filelist: target = c.filelist != nullptr; break;
    case CardKind::idlist: target = c.ids != nullptr; break;
  }
  if (!target || targets > 1) return false;
  // Only a value the echo can show has an echo line or a check that names it.
  const bool shown = c.kind == CardKind::real || c.kind == CardKind::integer || c.kind == CardKind::letter;
  if (!c.echolabel.empty() && !shown) return false;
  for (const CardCheck &k : c.checks) {
    if ((k.place == 0) != (k.code == 0) || (k.place == 0) != (k.fails == nullptr)) return false;
    if (k.withvalue && !shown) return false;
  }
  return true;
}

constexpr bool tablewellformed() {
  for (size_t i = 0; i < std::size(kCards); ++i) {
    if (!wellformed(kCards[i])) return false;
    for (size_t j = 0; j < i; ++j)
      if (kCards[j].keyword == kCards[i].keyword) return false;
  }
  return true;
}
static_assert(tablewellformed(), "a card of the deck's table is malformed or given twice");

// The number of checks, and whether each place from 1 to that number is taken exactly once.
constexpr int checkcount() {
  int n = static_cast<int>(std::size(kNamedChecks));
  for (const DeckCard &c : kCards)
    for (const CardCheck &k : c.checks) n += k.place != 0;
  return n;
}
constexpr int kChecks = checkcount();
constexpr bool placesonebyone() {
  for (int place = 1; place <= kChecks; ++place) {
    int taken = 0;
    for (const NamedCheck &k : kNamedChecks) taken += k.place == place;
    for (const DeckCard &c : kCards)
      for (const CardCheck &k : c.checks) taken += k.place == place;
    if (taken != 1) return false;
  }
  return true;
}
static_assert(placesonebyone(), "the places of the deck's checks must run 1, 2, ... once each");

// ---- the parse of one card

void readcard(const DeckCard &card, CardRead &r) {
  Settings &s = r.settings;
  if (card.flag != nullptr) s.*card.flag = card.kind != CardKind::clearflag;
  switch (card.kind) {
    case CardKind::flag:
    case CardKind::clearflag: break;
    case CardKind::real: r.realvalue(s.*card.real); break;
    case CardKind::integer: r.intvalue(s.*card.integer); break;
    case CardKind::letter: {
      const std::string v = r.textvalue();
      s.*card.letter = v.empty() ? ' ' : v[0];
      break;
    }
    case CardKind::text: r.files.*card.text = r.textvalue(); break;
    case CardKind::namelist: readnamelist(r.in, s.*card.names); break;
    case CardKind::filelist: readstlf(r.in, r.files.*card.filelist); break;
    case CardKind::idlist: readidlist(r.in, r.files.*card.ids, r.deckpath, r.keyline); break;
  }
  if (card.after != nullptr) card.after(r);
}

}  // namespace

std::vector<std::string> echolines(const Settings &s, bool ztolgiven) {
  std::vector<std::string> out;
  for (const DeckCard &card : kCards)
    if (!card.echolabel.empty()) out.push_back(std::string(card.echolabel) + cardvalue(card, s));
  if (s.fixzflag)
    out.insert(out.end(), {"", "Fixing Z displacements for vertices with minimal", "Z coordinates", "",
                           "Z tolerance = " + numtext(s.ztol), ""});
  if (s.norelflag) out.insert(out.end(), {"", "Applying no relative excursion from the build plane", ""});
  if (ztolgiven && !s.fixzflag) out.insert(out.end(), {"WARNING:  *ZTOL has no effect without *FIXZ", ""});
  if (s.fixzflag && s.norelflag) out.push_back("WARNING:  no Z distortion will be applied during this warp.");
  // The warning only: finishdeck clears the flag once the deck has passed.
  if (s.istlflag && s.astlflag) out.insert(out.end(), {"WARNING:  *ASTL is ignored with *ISTL", ""});
  return out;
}

std::vector<DeckFinding> validatedeck(const Settings &s, const JobFiles &files) {
  Validation v{s, files, {}};
  for (int place = 1; place <= kChecks; ++place) {
    for (const DeckCard &card : kCards)
      for (const CardCheck &k : card.checks)
        if (k.place == place && k.fails(s, files)) {
          if (k.withvalue)
            v.fail(k.code, {cardvalue(card, s)});
          else
            v.fail(k.code);
        }
    for (const NamedCheck &k : kNamedChecks)
      if (k.place == place) k.run(v);
  }
  return std::move(v.found);
}

namespace {

// A job without *INPU has one surface, the first of the reference list (the validation has made
// sure there is one), of type 1 and fraction 1; whatever *STLF gave is dropped.
void surfacefromreference(const Settings &s, JobFiles &files) {
  files.stlfiles.start();
  files.stltype.start();
  files.stlfraction.start();
  if (s.reffiles.n >= 1) {
    pushvalue(files.stlfiles, s.reffiles[0]);
    pushvalue(files.stltype, int32_t{1});
    pushvalue(files.stlfraction, 1.0f);
  }
}

}  // namespace

void finishdeck(Settings &s, JobFiles &files) {
  if (s.istlflag) s.astlflag = false;
  if (!s.inpuflag) surfacefromreference(s, files);
  files.selectbyfraction = s.sstlflag;
}

std::string CardRead::textvalue() {
  skipcomments(in);
  std::string v;
  checkdeckread(readtoken(in, v), deckpath, keyline);
  stripquotes(v);
  return v;
}

// A real value that is not finite (nan, inf, beyond the double range) no run can use: it is
// refused as a value that does not read.
void CardRead::realvalue(double &target) {
  skipcomments(in);
  int rd = readrealline(in, target);
  if (rd == 0 && !std::isfinite(target)) rd = IOSTAT_BADVALUE;
  checkdeckread(rd, deckpath, keyline);
}

void CardRead::intvalue(int32_t &target) {
  skipcomments(in);
  checkdeckread(readintline(in, target), deckpath, keyline);
}

std::span<const DeckCard> deckcards() { return kCards; }

const DeckCard *findcard(std::string_view key) {
  for (const DeckCard &card : kCards)
    if (card.keyword == key) return &card;
  return nullptr;
}

std::string cardvalue(const DeckCard &card, const Settings &settings) {
  switch (card.kind) {
    case CardKind::real: return numtext(settings.*card.real);
    case CardKind::integer: return inttext(settings.*card.integer);
    case CardKind::letter: return std::string(1, settings.*card.letter);
    default: return std::string();
  }
}

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

void deckpaths(const std::vector<std::string> &args, JobFiles &files) {
  if (args.size() != 1) fatal(175);
  const std::string &arg = args[0];
  checkarg(arg.size() > 8192 ? -1 : 0, arg);
  files.deckpath = rtrim(arg);
  checkexists(files.deckpath);
  files.deckstem = files.deckpath;
  if (fileexists(files.deckstem)) files.deckstem = stripext(files.deckstem);
}

bool readcards(const std::string &path, Settings &settings, JobFiles &files, const DeckNoteFn &onnote) {
  LineReader in;
  checkopen(in.open(path), path);
  std::string token;
  CardRead card{onnote, in, path, token, settings, files};
  const auto note = [&](DeckNote what) {
    if (onnote) onnote(what, token);
  };
  for (;;) {
    skipcomments(in);
    const int st = readtoken(in, token);
    if (st == IOSTAT_EOF) break;
    if (st != 0) note(DeckNote::unreadable);
    std::string key = token.substr(0, 5);
    key.resize(5, ' ');
    if (const DeckCard *known = findcard(key))
      readcard(*known, card);
    else
      note(DeckNote::unknowncard);
  }
  in.close();
  return card.ztolgiven;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// The control deck, in the order the run takes it (app/steps.h, readdeckstep): the command line
// gives the deck's path and stem (deckpaths), the cards are parsed (readcards), the settings
// echoed (echolines) and validated as a whole (validatedeck), and a deck that passes is made
// final (finishdeck): *ASTL yields to *ISTL, a job without *INPU has the first reference
// geometry as its one surface, and *SSTL starts the selection by fraction. The parser, the echo
// and the validation read the table of cards (control/deckcards.h); the echo and the validation
// change no setting. Nothing here prints: the notes, lines and faults are returned or told.
//
// Line rules: "#" in column 1 makes a comment line; a keyword counts by its first five
// characters; a value is the first free-form token of its line (quote a path with blanks or
// slashes); a list runs to the next line with "*" in column 1.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/list.h"
#include "base/textio.h"
#include "control/settings.h"

namespace wf {

// The deck's path (files.deckpath, trailing blanks cut) and stem (files.deckstem: the path
// without its extension when the file exists) from args, the command-line arguments after the
// program name. Throws Fatal: 175 (not one argument), 33, 34 (too long), 30 (no such file).
void deckpaths(const std::vector<std::string> &args, JobFiles &files);

// What the parse tells as it meets it, with the token in hand: a token that cannot be read (the
// card is still looked up), a keyword that names no card, and a *TSRT value that is not
// positive (reset to its default).
enum class DeckNote { unreadable, unknowncard, repairtolreset };
using DeckNoteFn = std::function<void(DeckNote note, const std::string &token)>;

// Parses the cards of the deck at path into settings (which hold their defaults before) and
// files. Returns whether *ZTOL was given (the echo warns when *FIXZ was not). Throws Fatal: 31,
// 97, 32.
bool readcards(const std::string &path, Settings &settings, JobFiles &files, const DeckNoteFn &onnote = {});

// The echo of the settings, line by line ("" a blank line): the values in the order of the
// table, then the notes on cards that act together.
std::vector<std::string> echolines(const Settings &settings, bool ztolgiven);

// One finding of the validation, in the order the run shows them: a fault (code, with its
// variables, posted as an error) or, with code 0, a line shown ("" a blank line).
struct DeckFinding {
  int code = 0;
  std::vector<std::string> vars;
  std::string line;
};
// Every check, in the order of its place, with the lines that show the surfaces and files.
std::vector<DeckFinding> validatedeck(const Settings &settings, const JobFiles &files);

// The settings of a deck that has passed, made final.
void finishdeck(Settings &settings, JobFiles &files);

// A file list into list, from an empty list; a list running to the end of the file keeps its
// last name twice. Shared with the solver input file.
void readstlf(LineReader &in, List<std::string> &list);
// Leaves the reader at the next line that is not a comment ("#" in column 1).
void skipcomments(LineReader &in);
// Takes one pair of enclosing double quotes off a text; trailing blanks are cut first.
void stripquotes(std::string &text);
// Appends to a list; a list that cannot grow ends the run with message 32, "push, tmp, 1".
template <class T>
void pushvalue(List<T> &list, const T &value) {
  if (list.push(value) != 0) checkalloc(1, "push, tmp, 1");
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// The control deck: readdeck checks the command line, moves the signal stream beside the deck,
// parses the cards, echoes the settings and validates them as a whole; a bad deck ends the run
// here, after every fault has been posted. A deck that passes is made final: *ASTL yields to
// *ISTL, a job without *INPU has the first reference geometry as its one surface, and *SSTL
// starts the selection by fraction. The parser, the echo and the validation read the table of
// cards (control/deckcards.h); the echo and the validation change no setting.
//
// Line rules: "#" in column 1 makes a comment line; a keyword counts by its first five
// characters; a value is the first free-form token of its line (quote a path with blanks or
// slashes); a list runs to the next line with "*" in column 1.
#pragma once

#include <string>
#include <vector>

#include "base/list.h"
#include "base/reporter.h"
#include "base/textio.h"
#include "control/settings.h"

namespace wf {

// args: the command-line arguments after the program name. Throws Fatal: 175, 33, 34, 30, 31,
// 97, 32, or (code 0) after the validation has posted its messages.
void readdeck(Reporter &rep, const std::vector<std::string> &args, Settings &settings, JobFiles &files);

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

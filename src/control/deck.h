// SPDX-License-Identifier: GPL-2.0-or-later
// The control deck: readdeck checks the command line, moves the signal stream beside the deck,
// parses the cards into RunState, echoes the settings and validates them as a whole; a bad deck
// ends the run here after every fault has been reported.
#pragma once

#include <string>

#include "control/runstate.h"
#include "base/textio.h"

namespace wf {

void setdefaults(RunState &rs);  // every default of the run, in one place
void readdeck(RunState &rs);
// Reads a file list into stlfiles (a list running to the end of the file keeps its last name
// twice). Shared with the solver input file.
void readstlf(RunState &rs, LineReader &in);
// Leaves the reader at the next line that is not a comment ("#" in column 1).
void skipcomments(LineReader &in);
// Takes one pair of enclosing double quotes off a text; trailing blanks are cut first.
void stripquotes(std::string &text);
// Growing lists: capacity grows by the factor 1.2 in single precision, rounded up, from 10.
// A failed growth without a status argument goes to checkalloc with "push, tmp, 1".
void pushint(RunState &rs, List<int32_t> &list, int32_t value, int *status = nullptr);
void pushname(RunState &rs, List<std::string> &list, const std::string &value, int *status = nullptr);
void pushreal(RunState &rs, List<float> &list, float value, int *status = nullptr);
// A list starts empty with room for ten entries.
template <class T>
void startlist(List<T> &list) {
  list.v.clear();
  list.v.resize(10);
  list.n = 0;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// The one exception of the program, and the check routines through which every failed read,
// open, allocation, argument and environment lookup funnels.
//
// A routine that meets a condition that ends the run throws Fatal. It carries the coded message
// that reports the condition (code 0: nothing to post, because the step posted its messages
// itself or the condition ends the run silently). Nothing but main catches it: main posts the
// message through the Reporter, prints "ABORTING" and ends the process with status 255. So the
// order a reader relies on holds: the message lines, the signal line, the way point, ABORTING.
//
// Each check routine does nothing for status 0 and throws otherwise; texts marked 256 are cut or
// padded to 256 characters. Severity is always 1 (error).
#pragma once

#include <exception>
#include <string>
#include <vector>

#include "base/folder.h"

namespace wf {

struct Fatal : std::exception {
  int code = 0;                   // message code, 0 for none
  std::vector<std::string> vars;  // its variables (empty: one empty variable)
  std::string iolayer;            // a failure of the I/O layer itself: its text, no message
  Fatal() = default;
  Fatal(int c, std::vector<std::string> v) : code(c), vars(std::move(v)) {}
  const char *what() const noexcept override { return "run aborted"; }
};

// Ends the run with coded message `code`.
[[noreturn]] void fatal(int code, std::vector<std::string> vars = {});
// Ends the run without a further message.
[[noreturn]] void fatalsilent();
// Ends the run as a failure of the I/O layer does where no coded message exists for it: the
// text goes to the error stream, and neither a message, a signal line nor "ABORTING" follows.
[[noreturn]] void iolayerfailure(const std::string &text);

// I/O status values handed to the check routines (the sense of a Fortran iostat).
constexpr int IOSTAT_EOF = -1;
constexpr int IOSTAT_EOR = -2;
constexpr int IOSTAT_BADVALUE = 5010;  // a value that does not read as its type
constexpr int IOSTAT_IOERR = 5002;     // any other failure of the I/O layer

// -2: message 27 (file); -1: 28 (file); other: 29 (256 file, status).
void checkread(int status, const std::string &file);
// No such file (looked for in `in`): 30 (file, file).
void checkexists(const std::string &file, const Folder &in = Folder());
// Non-zero: 31 (256 file, status, 256 file).
void checkopen(int status, const std::string &file);
// Non-zero: 32 (label "routine, array, n").
void checkalloc(int status, const std::string &label);
// -1, value longer than its field: 33; other: 34 (value).
void checkarg(int status, const std::string &value);
// -1: 35 (256 name, 256 value); 1: 36 (name); 2: 37 (name); other: 38 (256 name, 256 value,
// status).
void checkenv(int status, const std::string &name, const std::string &value);

}  // namespace wf

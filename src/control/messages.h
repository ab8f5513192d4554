// SPDX-License-Identifier: GPL-2.0-or-later
// Reporting: the console log, coded messages with their signal lines, the check routines that
// every I/O and allocation failure funnels through, and the small text helpers they use.
// A fatal condition calls postmessage(severity 1) and then abortrun, which throws RunAborted;
// only main catches it (exit status 255).
#pragma once

#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "control/runstate.h"

namespace wf {

// Thrown by abortrun; carries nothing: everything has been reported already.
struct RunAborted : std::exception {
  const char *what() const noexcept override { return "run aborted"; }
};

// I/O status values handed to the check routines (the sense of a Fortran iostat).
constexpr int IOSTAT_EOF = -1;
constexpr int IOSTAT_EOR = -2;
constexpr int IOSTAT_BADVALUE = 5010;  // a value that does not read as its type
constexpr int IOSTAT_IOERR = 5002;     // any other failure of the I/O layer

// ---- console ----
// A free-form line: one blank, the text, line end ("Reading file" -> " Reading file").
void say(RunState &rs, std::string_view text);
// An empty line.
void sayblank(RunState &rs);
// A line exactly as given (lines built with a fixed format: no leading blank is added).
void sayraw(RunState &rs, std::string_view text);
// Flush the console.
void conflush(RunState &rs);
// An integer as the console prints it: decimal, or upper-case hexadecimal once rs.conhex is set.
std::string conint(const RunState &rs, long long v);

// ---- coded messages and the end of a run ----
// vars empty means the call passes one empty variable.
void postmessage(RunState &rs, int severity, int code, const std::vector<std::string> &vars = {});
// Prints a blank line, "ABORTING", a blank line, then throws RunAborted.
[[noreturn]] void abortrun(RunState &rs);
// Numbered warning: count + 1, a blank line and "*** WARNING: " with the count.
void printwarning(RunState &rs);
// One blank, the trimmed text, line end, under the console lock.
void printline(RunState &rs, std::string_view text);

// ---- check routines: nothing for status 0, else the coded message and abortrun ----
void checkread(RunState &rs, int status, const std::string &file);
void checkexists(RunState &rs, const std::string &file);
void checkopen(RunState &rs, int status, const std::string &file);
void checkalloc(RunState &rs, int status, const std::string &label);
void checkarg(RunState &rs, int status, const std::string &value);
void checkenv(RunState &rs, int status, const std::string &name, const std::string &value);

// Resize a vector to n value-initialised entries; a failed allocation goes to checkalloc with
// the label ("routine, array, n").
template <class V>
void allocate(RunState &rs, V &v, size_t n, const char *label) {
  try {
    V fresh(n);
    v.swap(fresh);
  } catch (const std::bad_alloc &) {
    checkalloc(rs, 1, label);
  } catch (const std::length_error &) {
    checkalloc(rs, 1, label);
  }
}
// Release a vector's storage.
template <class V>
void release(V &v) {
  V().swap(v);
}

// ---- text helpers ----
std::string inttext(long long value, bool group = false);  // "1,234,567" with group, from 5 chars
std::string realtext(double value);   // free-form double text that reads back
std::string walltext(double seconds); // hh:mm:ss.cc with days in front
std::string text256(const std::string &text);  // blank-padded or cut to 256 characters
bool fileexists(const std::string &path);
std::string stripext(const std::string &path);  // text before the last dot of the whole path
std::string rtrim(std::string_view text);       // trailing blanks cut
double wallseconds(const RunState &rs);         // seconds since the start of the process

// ---- signal stream ----
void opensignalfile(RunState &rs);
void movesignalfile(RunState &rs, const std::string &extension);
std::string tempfilename(RunState &rs, const std::string &folder, const std::string &prefix,
                         const std::string &suffix);
void reportprogress(RunState &rs, int edge, int nedges, bool edgemode, int percent);
void finishedfilesignal(RunState &rs, const std::string &name);
void finishsignal(RunState &rs, int status);
void sendwaypoint(RunState &rs, const std::string &value, int valuelength, int severity);
// JSON string content of a text (no quotes around it); invalid UTF-8 is replaced, never thrown.
std::string jsonescape(std::string_view text);

}  // namespace wf

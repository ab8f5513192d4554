// SPDX-License-Identifier: GPL-3.0-or-later
// *O3MF: a written surface converted to a plain 3MF file through lib3MF. The reader is chosen by
// the input's extension, lowered (".stl" or ".3mf"). Statuses: 0 converted; -1 version query
// failed; -2 major version not 1; -3 minor version below 5; -5 unknown extension; -6 no model;
// -7 no reader; -8 not parsed; -9 no writer; -10 not written. Never fatal. Nothing here prints:
// the conversion tells a caller that reports it (app/steps.h) each stage as it comes, with the
// lib3MF status of a failure, which the console prints in hexadecimal (and its integers that way
// from then on).
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/folder.h"

namespace wf {

// What a conversion has done so far.
struct Conversion {
  int status = 0;         // as returned (above); set before `failed` is told
  int libstatus = 0;      // lib3MF's status of the failed call (-1, -6 to -10)
  std::string extension;  // the input's extension, lowered, from its last dot (empty without)
  uint64_t readms = 0;    // the time of the read, in milliseconds
  uint64_t writems = 0;   // the time of the write, in milliseconds
};

// The moments of a conversion, in this order: before anything (start), before the read
// (reading), after it (read), before the write (writing), after it (written); or, at any point
// after start, the failure that ends it (failed).
enum class ConvertStage { start, failed, reading, read, writing, written };
using ConvertStageFn = std::function<void(ConvertStage stage, const Conversion &sofar)>;

// Returns the status; onstage, when given, is told each stage. Both paths are relative to `in`.
int convertto3mf(const char *inputpath, const char *outputpath, const ConvertStageFn &onstage = {},
                 const Folder &in = Folder());
// The name of the plain 3MF file: up to and including the last dot of the whole path, then "3mf".
std::string plain3mfname(const std::string &outstlpath);

}  // namespace wf

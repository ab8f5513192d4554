// SPDX-License-Identifier: GPL-3.0-or-later
// STL reader. A file is ASCII when its vertex and facet lines count up (three vertices per
// facet); anything else is tried as binary, in the remembered byte order first and then in the
// orders 1 native, 2 little-endian, 3 big-endian, 4 non-native (the count decoded by hand, the
// coordinates taken as raw bytes). Every triangle brings its own three vertices; no merging.
// Nothing here prints: readstl returns what it found, and tells a caller that reports the read
// of each stage as it comes (app/steps.h).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/folder.h"
#include "surface/surfacemesh.h"

namespace wf {

// The ASCII attempt. 0: raw is complete. Otherwise raw.nvrt and raw.ntri hold the counts of the
// first pass and the caller goes on with the binary attempts. Throws Fatal: 30 (no file), 31
// (open), 27 or 29 (a read error of the first pass), 32 (memory). Every path here is relative
// to `in` and named in the messages as given.
int readstlascii(const std::string &path, RawSurface &raw, const Folder &in = Folder());
// One binary attempt in byte order 1..4. 0: raw is complete. -1: the count is not positive;
// any other non-zero value: the file cannot hold the count or a read failed (raw.nvrt and
// raw.ntri keep the count read, 32-bit arithmetic). Throws Fatal: 30, 31, 32 (orders 1-3).
int readstlbinary(const std::string &path, int order, RawSurface &raw, const Folder &in = Folder());
// "native", "little_endian", "big_endian" or "non-native".
const char *byteorderword(int order);

// What the read of one surface found.
struct StlRead {
  std::string path;         // the file read: the one asked for, or its repaired sibling
  bool repaired = false;    // the repaired sibling was there and was read instead
  bool ascii = false;       // the text attempt read the file; otherwise the byte orders were tried
  std::vector<int> orders;  // the byte orders tried, in the order tried (empty for text)
  int byteorder = 0;        // the order to remember for the next surface (as given after text)
  RawSurface raw;           // the soup, its counts and its box
};

// The moments of a read, in this order: the file to read is chosen (source), before each
// binary attempt (attempt: the order is orders.back()), the form is known (form: ascii, or
// every attempt made, successful or not). A fatal end of the read comes after the last one
// told.
enum class StlStage { source, attempt, form };
using StlStageFn = std::function<void(StlStage stage, const StlRead &sofar)>;

// What the reads of a run carry from one file to the next: the byte order to try first (the one
// that read the last binary file; 0 before any) and the file the last read took (the repaired
// sibling when there was one), which the warnings on the surface name.
struct StlMemory {
  std::string path;
  int byteorder = 0;
  // Takes what a read has found by any of its stages.
  void remember(const StlRead &sofar) {
    path = sofar.path;
    byteorder = sofar.byteorder;
  }
};

// The read of one surface: the repaired sibling of `path` when there is one, then the text
// attempt, then the binary attempts (the remembered `byteorder` first when not 0, then orders
// 1 to 4 until one reads), then the box. onstage, when given, is told each stage. Throws Fatal:
// 130 (no vertices, or a count no byte order could read), 131 (no triangles), and what the
// attempts throw. The path and its sibling are looked for in `in`; StlRead.path is the name as
// given (or the sibling's name made from it).
StlRead readstl(const std::string &path, int byteorder, const StlStageFn &onstage = {}, const Folder &in = Folder());

}  // namespace wf

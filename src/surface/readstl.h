// SPDX-License-Identifier: GPL-3.0-or-later
// STL reader. A file is ASCII when its vertex and facet lines count up (three vertices per
// facet); anything else is tried as binary, in the remembered byte order first and then in the
// orders 1 native, 2 little-endian, 3 big-endian, 4 non-native (the count decoded by hand, the
// coordinates taken as raw bytes). Every triangle brings its own three vertices; no merging.
#pragma once

#include <string>

#include "base/reporter.h"
#include "surface/surfacemesh.h"

namespace wf {

// The ASCII attempt. 0: raw is complete. Otherwise raw.nvrt and raw.ntri hold the counts of the
// first pass and the caller goes on with the binary attempts. Throws Fatal: 30 (no file), 31
// (open), 27 or 29 (a read error of the first pass), 32 (memory).
int readstlascii(const std::string &path, RawSurface &raw);
// One binary attempt in byte order 1..4. 0: raw is complete. -1: the count is not positive;
// any other non-zero value: the file cannot hold the count or a read failed (raw.nvrt and
// raw.ntri keep the count read, 32-bit arithmetic). Throws Fatal: 30, 31, 32 (orders 1-3).
int readstlbinary(const std::string &path, int order, RawSurface &raw);
// "native", "little_endian", "big_endian" or "non-native".
const char *byteorderword(int order);

// The read of one surface as a step of the run: takes the repaired sibling when there is one
// (stlpath then names it for good), reads ASCII or binary (byteorder is remembered between
// surfaces), computes the box and reports the file on the console. A surface without vertices
// or triangles ends the run (message 130 or 131).
RawSurface readstl(Reporter &rep, std::string &stlpath, int &byteorder);

}  // namespace wf

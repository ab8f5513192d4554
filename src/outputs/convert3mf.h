// SPDX-License-Identifier: GPL-3.0-or-later
// *O3MF: a written surface converted to a plain 3MF file through lib3MF. The reader is chosen by
// the input's extension, lowered (".stl" or ".3mf"); every console line is written and flushed
// at once. Statuses: 0 converted; -1 version query failed; -2 major version not 1; -3 minor
// version below 5; -5 unknown extension; -6 no model; -7 no reader; -8 not parsed; -9 no writer;
// -10 not written. A lib3MF status is printed in hexadecimal, which leaves the console printing
// its integers that way. Never fatal.
#pragma once

#include <string>

#include "base/folder.h"
#include "base/reporter.h"

namespace wf {

// Both paths are relative to `in`; the lines name them as given.
int convertto3mf(Reporter &rep, const char *inputpath, const char *outputpath, const Folder &in = Folder());
// The name of the plain 3MF file: up to and including the last dot of the whole path, then "3mf".
std::string plain3mfname(const std::string &outstlpath);

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// EnSight Gold geometry file of one mesh: one part, one block of 8-node elements. The first
// record decides the form: "Fortran Binary" or "C Binary" means sequential records with length
// markers (both alike), anything else, or a failed read, text. Only "off" on an id line means
// that the ids are absent. Every count is checked against what the file can still hold before
// anything is allocated.
#pragma once

#include <string>

#include "base/folder.h"
#include "simresults/readcase.h"
#include "simresults/simulation.h"

namespace wf {

// Reads the mesh into sim (nodes, ids, elements, resultsbinary, the id indexes). Throws Fatal:
// 31 (open), 27, 28, 29 (a read fails or a count does not fit the file), 32. The path is
// relative to `in`; the messages name it as given.
void readgeofile(const std::string &path, Simulation &sim, const Folder &in = Folder());

// prefix + number + suffix; when that is missing, the number zero-padded to width 1..10, the
// first name that exists (looked for in `in`; the name is returned as made). Throws Fatal 30 on
// the last name tried when none exists.
std::string findresultfile(const std::string &prefix, int number, const std::string &suffix,
                           const Folder &in = Folder());

// The name of the run's mesh file (.geo) under results/ of the case folder `in` (below the cloud
// folder in the cloud layout, under its fixed stem), from the case stem and the mesh file number,
// as findresultfile finds it. Throws Fatal 30.
std::string meshfilename(const CaseInfo &info, const std::string &casestem, int meshfilenumber,
                         const Folder &in = Folder());

}  // namespace wf

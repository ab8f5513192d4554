// SPDX-License-Identifier: GPL-3.0-or-later
// The zip of the 3MF package through minizip: each member with its file's last write time
// (local, packed DOS date and time), deflated, in list order. Every console line begins with
// "zip:  " and is written at once; numbers follow the console's hexadecimal mode. A failure is
// reported and returned, never thrown; a half-made zip is left as it stands.
//
// A member deflated beforehand from the very bytes written to its file is not read back: its
// file is still stamped, measured and opened for reading as every member's is, and its stream is
// stored as it stands.
#pragma once

#include <string>

#include "base/folder.h"
#include "base/reporter.h"
#include "outputs/deflate.h"

namespace wf {

// A member's stream made beforehand; name as in the list of members.
struct DeflatedMember {
  std::string name;
  const Deflated *packed = nullptr;
};

// Zips the members named in filelist (each followed by a line feed; split in place) from
// folder into zipname; the member named by `given` (when there is one) is stored from its
// stream. Returns 0, -104 (no transfer buffer), or the failing status. The zip and the folder
// are relative to `in`; the lines name them as given.
int zippackage(Reporter &rep, const char *zipname, const char *folder, char *filelist,
               const DeflatedMember *given = nullptr, const Folder &in = Folder());
// 1 when the file has 0xFFFFFFFF bytes or more, else 0 (also when it cannot be opened); an
// opened file is reported as prefix + file "path" is N bytes (path as given, opened in `in`).
int iszip64file(Reporter &rep, const char *path, const char *prefix, const Folder &in = Folder());

}  // namespace wf

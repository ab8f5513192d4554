// SPDX-License-Identifier: GPL-3.0-or-later
// The zip of the 3MF package through minizip: each member with its file's last write time
// (local, packed DOS date and time), deflated, in list order. Every console line begins with
// "zip:  " and is written at once; numbers follow the console's hexadecimal mode. A failure is
// reported and returned, never thrown; a half-made zip is left as it stands.
#pragma once

#include "base/reporter.h"

namespace wf {

// Zips the members named in filelist (each followed by a line feed; split in place) from
// folder into zipname. Returns 0, -104 (no transfer buffer), or the failing status.
int zippackage(Reporter &rep, const char *zipname, const char *folder, char *filelist);
// 1 when the file has 0xFFFFFFFF bytes or more, else 0 (also when it cannot be opened); an
// opened file is reported as prefix + file "path" is N bytes.
int iszip64file(Reporter &rep, const char *path, const char *prefix);

}  // namespace wf

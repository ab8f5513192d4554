// SPDX-License-Identifier: GPL-3.0-or-later
// The zip of the 3MF package through minizip: each member with its file's last write time
// (local, packed DOS date and time), deflated, in list order. Nothing here prints: the zip tells
// a caller each thing the console reports as it happens (a ZipNote, with the name and number the
// line carries), and the caller words it (app/steps.h; every line begins with "zip:  ", and
// the statuses follow the console's number mode). A failure is told and returned, never thrown;
// a half-made zip is left as it stands.
//
// A member deflated beforehand from the very bytes written to its file is not read back: its
// file is still stamped, measured and opened for reading as every member's is, and its stream is
// stored as it stands.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/folder.h"
#include "outputs/deflate.h"

namespace wf {

// A member's stream made beforehand; name as in the list of members.
struct DeflatedMember {
  std::string name;
  const Deflated *packed = nullptr;
};

// What the zip tells, in the order it happens. name is the zip (created, notcreated, notclosed)
// or the member's file as "folder/member" (the others but starting, nobuffer and done); number
// is the member's size in bytes (membersize) or the failing status (the "in the zipfile" ones
// and notclosed).
enum class ZipEvent {
  starting,
  nobuffer,        // no transfer buffer
  created,         // the zip is open
  notcreated,      // the zip cannot be opened
  membersize,      // a member's file, measured
  notopenedinzip,  // the member's entry cannot be opened in the zip
  notopened,       // the member's file cannot be opened for reading
  notread,         // the member's file cannot be read to its end
  notwritten,      // the member cannot be deflated or written into the zip
  notclosedinzip,  // the member's entry cannot be closed
  done,            // the zip is closed
  notclosed        // the zip cannot be closed
};
struct ZipNote {
  ZipEvent event = ZipEvent::starting;
  std::string name;
  long long number = 0;
};
using ZipNoteFn = std::function<void(const ZipNote &note)>;

// Zips the members named in filelist (each followed by a line feed; split in place) from
// folder into zipname; the member named by `given` (when there is one) is stored from its
// stream. onnote, when given, is told each note. Returns 0, -104 (no transfer buffer), or the
// failing status. The zip and the folder are relative to `in`; the notes name them as given.
int zippackage(const char *zipname, const char *folder, char *filelist, const DeflatedMember *given = nullptr,
               const ZipNoteFn &onnote = {}, const Folder &in = Folder());
// 1 when the file has 0xFFFFFFFF bytes or more, else 0 (also when it cannot be opened). bytes,
// when given, takes the size of an opened file (0 when it cannot be measured), and stays empty
// when the file cannot be opened. The path is opened in `in`.
int iszip64file(const char *path, std::optional<long long> *bytes = nullptr, const Folder &in = Folder());

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// The folder a file name is taken from. The process never changes its current folder: a name
// that a job gives relative to another folder (the case file's, the solver input file's) is
// opened as that folder's path joined with the name, and is printed, posted and signalled as
// the name alone. The default folder is the one the process runs in; its names are opened as
// they stand.
#pragma once

#include <string>
#include <utility>

namespace wf {

class Folder {
 public:
  Folder() = default;
  // path: absolute, or relative to the folder the process runs in; empty for that folder.
  explicit Folder(std::string path) : path_(std::move(path)) {}

  // The name as the system is to open it: an empty or absolute name as it stands, any other
  // below this folder.
  std::string at(const std::string &name) const;
  // The folder `name` (relative to this one, or absolute) as a change of the current folder
  // would reach it: this folder itself when the name is empty or "." or names no folder that
  // can be entered (missing, not a folder, not searchable).
  Folder enter(const std::string &name) const;
  // Empty for the folder the process runs in.
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace wf

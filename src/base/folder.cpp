// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/folder.h"

#include <sys/stat.h>
#include <unistd.h>

namespace wf {

std::string Folder::at(const std::string &name) const {
  if (path_.empty() || name.empty() || name.front() == '/') return name;
  // No normalisation: the system walks the joined name as it would walk the name from inside
  // the folder ("..", links and all).
  return path_.back() == '/' ? path_ + name : path_ + "/" + name;
}

Folder Folder::enter(const std::string &name) const {
  if (name.empty() || name == ".") return *this;
  const std::string path = at(name);
  struct stat st;
  if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || ::access(path.c_str(), X_OK) != 0) return *this;
  return Folder(path);
}

}  // namespace wf

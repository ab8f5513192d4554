// SPDX-License-Identifier: GPL-3.0-or-later
#include "control/catalogue.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "base/text.h"

namespace wf {

std::string exefolder(const std::string &) {
  // The module name stands for the suite's main solver; in a warpforge process no such module is
  // loaded, so the folder is always that of the running executable.
  std::string buf(8192, '\0');
  ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size() - 1);
  if (n <= 0) return "";
  buf.resize(static_cast<size_t>(n));
  size_t slash = buf.find_last_of('/');
  if (slash == std::string::npos) return "";
  return buf.substr(0, slash + 1);
}

void loadsettings(Reporter &rep) { rep.loadcatalogue(rtrim(exefolder("kel2")) + "simsolver.arb"); }

}  // namespace wf

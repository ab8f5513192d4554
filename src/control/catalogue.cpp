// SPDX-License-Identifier: GPL-3.0-or-later
#include "control/catalogue.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "base/text.h"

namespace wf {

std::string exefolder() {
  std::string buf(8192, '\0');
  ssize_t n = ::readlink("/proc/self/exe", buf.data(), buf.size() - 1);
  if (n <= 0) return "";
  buf.resize(static_cast<size_t>(n));
  size_t slash = buf.find_last_of('/');
  if (slash == std::string::npos) return "";
  return buf.substr(0, slash + 1);
}

std::string cataloguepath() { return rtrim(exefolder()) + "simsolver.arb"; }

}  // namespace wf

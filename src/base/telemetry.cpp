// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/telemetry.h"

#include <cstdio>
#include <cstdlib>

namespace wf {

int Telemetry::sendsinglewaypoint(const char *name, int namelength, const char *value, int valuelength) {
  std::string n(name, static_cast<size_t>(namelength > 0 ? namelength : 0));
  std::string v(value, static_cast<size_t>(valuelength > 0 ? valuelength : 0));
  if (const char *log = std::getenv("WARPFORGE_WAYPOINT_LOG"); log && *log) {
    if (std::FILE *f = std::fopen(log, "a")) {
      std::fprintf(f, "%s %s\n", n.c_str(), v.c_str());
      std::fclose(f);
    }
  }
  sent_.emplace_back(std::move(n), std::move(v));
  return 0;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-2.0-or-later
#include "control/simwpl.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace wf {

int simwplsendsinglewaypoint(RunState &rs, const char *name, int namelength, const char *value,
                             int valuelength) {
  std::string n(name, static_cast<size_t>(namelength));
  std::string v(value, static_cast<size_t>(valuelength));
  rs.waypoints.emplace_back(n, v);
  if (const char *log = std::getenv("WARPFORGE_WAYPOINT_LOG"); log && *log) {
    if (std::FILE *f = std::fopen(log, "a")) {
      std::fprintf(f, "%s %s\n", n.c_str(), v.c_str());
      std::fclose(f);
    }
  }
  return 0;
}

}  // namespace wf

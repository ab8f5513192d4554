// SPDX-License-Identifier: GPL-3.0-or-later
// Telemetry way points. There is no network here: each way point (event name and value) is kept
// in the order sent, so that a test can read what was sent, and appended as one line
// "name value" to the file that WARPFORGE_WAYPOINT_LOG names, when that variable is set.
// Nothing needs to be initialised or closed.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace wf {

class Telemetry {
 public:
  // Sends one way point; the lengths say how much of each text counts. Always returns 0.
  int sendsinglewaypoint(const char *name, int namelength, const char *value, int valuelength);
  const std::vector<std::pair<std::string, std::string>> &sent() const { return sent_; }

 private:
  std::vector<std::pair<std::string, std::string>> sent_;
};

}  // namespace wf

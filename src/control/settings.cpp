// SPDX-License-Identifier: GPL-2.0-or-later
#include "control/settings.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "control/messages.h"

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

void loadsettings(RunState &rs) {
  rs.messagecatalogue = nlohmann::json::object();
  rs.catalogueok = false;
  std::string path = rtrim(exefolder("kel2")) + "simsolver.arb";
  sayblank(rs);
  say(rs, " Loading file: " + path + "...");
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    say(rs, "[json.exception.file_error] cannot open file " + path);
    conflush(rs);
    return;
  }
  try {
    rs.messagecatalogue = nlohmann::json::parse(in);
    rs.catalogueok = true;
    say(rs, " ...success");
  } catch (const nlohmann::json::exception &e) {
    rs.messagecatalogue = nlohmann::json::object();
    say(rs, e.what());
    conflush(rs);
  }
}

std::string catalogtext(RunState &rs, const std::string &group, int code) {
  if (!rs.catalogueok) return "";
  const auto &cat = rs.messagecatalogue;
  std::string key = std::to_string(code);
  if (cat.is_object()) {
    auto g = cat.find(group);
    if (g != cat.end() && g->is_object()) {
      auto t = g->find(key);
      if (t != g->end() && t->is_string()) return t->get<std::string>();
    }
  }
  // The first path that is not found leaves the catalogue in its failed state for the rest of
  // the run: later lookups are empty as well.
  rs.catalogueok = false;
  return "";
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/text.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace wf {

std::string rtrim(std::string_view text) {
  size_t n = text.size();
  while (n > 0 && text[n - 1] == ' ') --n;
  return std::string(text.substr(0, n));
}

std::string inttext(long long value, bool group) {
  std::string s = std::to_string(value);
  if (!group || s.size() <= 4) return s;
  const bool neg = s[0] == '-';
  const std::string digits = neg ? s.substr(1) : s;
  std::string out;
  out.reserve(digits.size() + digits.size() / 3 + 1);
  const size_t lead = digits.size() % 3 == 0 ? 3 : digits.size() % 3;
  out.append(digits, 0, lead);
  for (size_t i = lead; i < digits.size(); i += 3) {
    out.push_back(',');
    out.append(digits, i, 3);
  }
  return neg ? "-" + out : out;
}

std::string walltext(double seconds) {
  if (!(seconds >= 0)) seconds = 0;
  // Hundredths are cut, not rounded; the tiny factor keeps 0.29 from becoming 0.28.
  long long cs = static_cast<long long>(std::floor(seconds * 100.0 * (1.0 + 1e-12)));
  const long long days = cs / 8640000;
  cs -= days * 8640000;
  const int h = static_cast<int>(cs / 360000);
  cs -= h * 360000LL;
  const int m = static_cast<int>(cs / 6000);
  cs -= m * 6000LL;
  const int s = static_cast<int>(cs / 100);
  const int c = static_cast<int>(cs - s * 100LL);
  char buf[64];
  std::snprintf(buf, sizeof buf, "%02d:%02d:%02d.%02d", h, m, s, c);
  if (days == 0) return buf;
  return std::to_string(days) + " day" + (days > 1 ? "s" : "") + " " + buf;
}

std::string text256(const std::string &text) {
  std::string s = text.substr(0, 256);
  s.resize(256, ' ');
  return s;
}

bool fileexists(const std::string &path) {
  struct stat st;
  if (path.empty()) return false;
  return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

std::string stripext(const std::string &path) {
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos) return path;
  return path.substr(0, dot);
}

size_t lastdot(std::string_view path) {
  const size_t p = path.find_last_of('.');
  return p == std::string_view::npos ? 0 : p + 1;
}

std::string repairoutputname(const std::string &path, const Folder &in) {
  return (fileexists(in.at(path)) ? rtrim(stripext(path)) : path) + "_ls_repair.stl";
}

std::string repairedsiblingname(const std::string &path) {
  const size_t dot = path.find_last_of('.');
  return ((dot == std::string::npos || dot == 0) ? std::string() : path.substr(0, dot)) + "_ls_repair.stl";
}

std::string jsonescape(std::string_view text) {
  const std::string s =
      nlohmann::json(std::string(text)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return s.substr(1, s.size() - 2);
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// Test helpers around the Reporter: one whose console is read back, and the coded message of a
// Fatal that a call throws.
#pragma once

#include <cstdio>
#include <string>

#include "base/fatal.h"
#include "base/reporter.h"

namespace wft {

// A Reporter whose console goes to a temporary file; text() returns what was printed since
// the last call.
struct CapturedReporter {
  std::FILE *file = std::tmpfile();
  wf::Reporter rep{file};
  long seen = 0;
  ~CapturedReporter() { std::fclose(file); }
  std::string text() {
    std::fflush(file);
    const long end = std::ftell(file);
    std::string out(static_cast<size_t>(end - seen), '\0');
    std::fseek(file, seen, SEEK_SET);
    out.resize(std::fread(out.data(), 1, out.size(), file));
    std::fseek(file, end, SEEK_SET);
    seen = end;
    return out;
  }
};

// "code var1 var2 ..." (trailing blanks of the variables cut) of the Fatal that f throws;
// "none" when f returns.
template <class F>
std::string fatalof(F f) {
  try {
    f();
  } catch (const wf::Fatal &fatal) {
    if (!fatal.iolayer.empty()) return "I/O layer: " + fatal.iolayer;
    std::string s = std::to_string(fatal.code);
    for (const std::string &v : fatal.vars) s += " " + v.substr(0, v.find_last_not_of(' ') + 1);
    return s;
  }
  return "none";
}

}  // namespace wft

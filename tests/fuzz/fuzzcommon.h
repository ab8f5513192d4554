// SPDX-License-Identifier: GPL-3.0-or-later
// Shared by the fuzz harnesses: every input is written to a file in a folder of this process,
// the reader runs on it, and a Fatal (the orderly end of a run on a bad file) is the expected
// way out. Anything else - a crash, a sanitizer report, another exception, a hang - is a find.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/fatal.h"
#include "base/reporter.h"

namespace fuzz {

// The folder of this process, made once; the current folder moves there.
inline const std::string &folder() {
  static const std::string dir = [] {
    const std::string d = (std::filesystem::temp_directory_path() / ("wffuzz_" + std::to_string(getpid()))).string();
    std::filesystem::create_directories(d);
    std::filesystem::current_path(d);
    return d;
  }();
  return dir;
}

inline void writefile(const std::string &name, const uint8_t *data, size_t size) {
  folder();
  std::ofstream(name, std::ios::binary).write(reinterpret_cast<const char *>(data), std::streamsize(size));
}

// A Reporter whose console goes nowhere.
inline wf::Reporter &quiet() {
  static std::FILE *devnull = std::fopen("/dev/null", "w");
  static wf::Reporter rep(devnull);
  return rep;
}

// Runs f; a Fatal is the orderly end of a run and counts as handled.
template <class F>
void run(F f) {
  try {
    f();
  } catch (const wf::Fatal &) {
  }
}

}  // namespace fuzz

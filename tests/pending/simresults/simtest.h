// SPDX-License-Identifier: GPL-2.0-or-later
// Shared pieces of the simulation-result tests: a fixture that runs in a fresh folder with the
// console captured and the coded messages read back from the signal stream, and a writer for
// sequential binary records.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "control/messages.h"
#include "control/runstate.h"
#include "testutil.h"

namespace simtest {

using strings = std::vector<std::string>;

// Every test runs in its own empty folder, which is the current folder while it runs.
struct SimTest : ::testing::Test {
  wf::RunState rs;
  std::string dir;
  std::filesystem::path oldcwd;
  size_t seen = 0;  // messages already handed out

  void SetUp() override {
    // A catalogue text that names every variable, so that the signal lines list them.
    nlohmann::json errors, warnings;
    for (int code : {27, 28, 29, 30, 31, 32, 190, 191, 192, 194, 195, 362, 370, 371})
      errors[std::to_string(code)] = "message %1 %2 %3";
    for (int code : {1036, 1037}) warnings[std::to_string(code)] = "warning %1";
    rs.messagecatalogue = {{"errors", errors}, {"critical warnings", warnings}};
    rs.catalogueok = true;
    rs.signalunit = std::tmpfile();
    dir = wft::tempdir("simres");
    oldcwd = std::filesystem::current_path();
    std::filesystem::current_path(dir);
    testing::internal::CaptureStdout();
  }
  void TearDown() override {
    console();
    testing::internal::GetCapturedStdout();
    std::filesystem::current_path(oldcwd);
    std::fclose(rs.signalunit);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
  // The console since the last call (failures are reported on it too: hand them on).
  std::string console() {
    std::fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    if (HasFailure()) std::fprintf(stderr, "%s", out.c_str());
    testing::internal::CaptureStdout();
    return out;
  }
  // The coded messages posted since the last call, each as "type code variables...".
  strings messages() {
    std::fflush(rs.signalunit);
    std::rewind(rs.signalunit);
    std::string s;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, rs.signalunit)) > 0;) s.append(buf, n);
    strings out;
    for (const std::string &line : wft::splitlines(s)) {
      auto j = nlohmann::json::parse(line, nullptr, false);
      if (j.is_discarded() || !j.contains("message")) continue;
      std::string m = j["message"]["type"].get<std::string>() + " " + std::to_string(j["message"]["code"].get<int>());
      for (const auto &v : j["message"]["variables"]) m += " " + v.get<std::string>();
      out.push_back(m);
    }
    out.erase(out.begin(), out.begin() + static_cast<long>(std::min(seen, out.size())));
    seen += out.size();
    return out;
  }
  // Runs f, which must abort the run with one message that begins "error " + start (the code,
  // then as many of its variables as the test names).
  template <class F>
  void aborts(F f, const std::string &start) {
    EXPECT_THROW(f(), wf::RunAborted);
    const strings got = messages();
    EXPECT_TRUE(got.size() == 1 && (got[0] + " ").rfind("error " + start + " ", 0) == 0)
        << "wanted error " << start << ", got " << testing::PrintToString(got);
  }
};

// Sequential binary records as the solver writes them.
struct Records {
  std::string b;
  void rec(const void *p, size_t n) {
    const int32_t m = static_cast<int32_t>(n);
    b.append(reinterpret_cast<const char *>(&m), 4).append(static_cast<const char *>(p), n);
    b.append(reinterpret_cast<const char *>(&m), 4);
  }
  void text(std::string s) {
    s.resize(80, ' ');
    rec(s.data(), 80);
  }
  void i(int32_t v) { rec(&v, 4); }
  template <class T>
  void vals(const std::vector<T> &v) { rec(v.data(), sizeof(T) * v.size()); }
};

}  // namespace simtest

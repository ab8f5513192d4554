// SPDX-License-Identifier: GPL-2.0-or-later
// Shared pieces of the simulation-result tests: a fixture that runs in a fresh folder with the
// console captured and the signal stream in a temporary file, the messages read back from that
// stream, and a writer for sequential binary records.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "control/messages.h"
#include "control/runstate.h"
#include "testutil.h"

namespace simtest {

struct Message {
  std::string type;
  int code = 0;
  std::vector<std::string> vars;
};

// Every test runs in its own empty folder, which is the current folder while it runs.
struct SimTest : ::testing::Test {
  wf::RunState rs;
  std::string dir;
  std::filesystem::path oldcwd;
  std::string captured;
  bool capturing = false;

  void SetUp() override {
    // Every code these readers post gets a text that names all its variables, so that the
    // signal lines list them.
    nlohmann::json errors = nlohmann::json::object(), warnings = nlohmann::json::object();
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
    capturing = true;
  }
  void TearDown() override {
    // Failures are reported on the captured stream: hand them on when the test failed.
    if (capturing) {
      const std::string rest = testing::internal::GetCapturedStdout();
      if (HasFailure()) std::fprintf(stderr, "%s", rest.c_str());
    }
    std::filesystem::current_path(oldcwd);
    if (rs.signalunit) std::fclose(rs.signalunit);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
  // The console since the last call.
  std::string console() {
    std::fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    return out;
  }
  // The coded messages of the signal stream so far.
  std::vector<Message> messages() {
    std::fflush(rs.signalunit);
    std::rewind(rs.signalunit);
    std::string s;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, rs.signalunit)) > 0) s.append(buf, n);
    std::fseek(rs.signalunit, 0, SEEK_END);
    std::vector<Message> out;
    for (const std::string &line : wft::splitlines(s)) {
      auto j = nlohmann::json::parse(line, nullptr, false);
      if (j.is_discarded() || !j.contains("message")) continue;
      Message m;
      m.type = j["message"]["type"].get<std::string>();
      m.code = j["message"]["code"].get<int>();
      for (const auto &v : j["message"]["variables"]) m.vars.push_back(v.get<std::string>());
      out.push_back(m);
    }
    return out;
  }
  Message lastmessage() {
    auto all = messages();
    return all.empty() ? Message{} : all.back();
  }
};

// Sequential binary records as the solver writes them.
struct Records {
  std::string b;
  void raw(const void *p, size_t n) { b.append(static_cast<const char *>(p), n); }
  void marker(int32_t v) { raw(&v, 4); }
  void rec(const void *p, size_t n) {
    marker(static_cast<int32_t>(n));
    raw(p, n);
    marker(static_cast<int32_t>(n));
  }
  void text(const std::string &s) {
    std::string t = s;
    t.resize(80, ' ');
    rec(t.data(), 80);
  }
  void i(int32_t v) { rec(&v, 4); }
  void ints(const std::vector<int32_t> &v) { rec(v.data(), 4 * v.size()); }
  void floats(const std::vector<float> &v) { rec(v.data(), 4 * v.size()); }
};

}  // namespace simtest

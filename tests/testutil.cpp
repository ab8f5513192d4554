// SPDX-License-Identifier: GPL-3.0-or-later
#include "testutil.h"

#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace wft {

std::string tempdir(const std::string &tag) {
  static std::atomic<int> counter{0};
  fs::path p =
      fs::temp_directory_path() / ("wftest_" + std::to_string(getpid()) + "_" + std::to_string(counter++) + "_" + tag);
  fs::remove_all(p);
  fs::create_directories(p);
  return p.string();
}

InTempDir::InTempDir(const std::string &tag) : old(fs::current_path().string()) { fs::current_path(tempdir(tag)); }
InTempDir::~InTempDir() { fs::current_path(old); }

std::string readfile(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

void writefile(const std::string &path, const std::string &content) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f << content;
}

std::vector<std::string> splitlines(const std::string &text) {
  std::vector<std::string> out;
  for (size_t pos = 0, nl; pos < text.size(); pos = nl + 1) {
    nl = std::min(text.find('\n', pos), text.size());
    out.push_back(text.substr(pos, nl - pos));
  }
  return out;
}

bool contains(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

std::vector<std::string> readmecards(const std::string &readmetext) {
  std::vector<std::string> cards;
  for (const std::string &line : splitlines(readmetext))
    if (line.rfind("| `*", 0) == 0) {
      const std::string cell = line.substr(1, line.find('|', 1) - 1);
      for (size_t p = cell.find("`*"); p != std::string::npos; p = cell.find("`*", p + 1))
        cards.push_back(cell.substr(p + 1, cell.find('`', p + 1) - p - 1));
    }
  return cards;
}

RunResult runprogram(const std::string &exe, const std::vector<std::string> &args, const std::string &cwd,
                     const std::map<std::string, std::string> &env) {
  RunResult r;
  std::string outpath = tempdir("out") + "/output.txt";
  pid_t pid = fork();
  if (pid == 0) {
    if (chdir(cwd.c_str()) != 0) _exit(127);
    int fd = open(outpath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, 1);
    dup2(fd, 2);
    if (!env.count("CRVT_TSR_SIM_TMP")) setenv("CRVT_TSR_SIM_TMP", (cwd + "/tmp").c_str(), 1);
    for (const auto &[k, v] : env) {
      if (v.empty())
        unsetenv(k.c_str());
      else
        setenv(k.c_str(), v.c_str(), 1);
    }
    std::vector<char *> argv{const_cast<char *>(exe.c_str())};
    for (const auto &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execv(exe.c_str(), argv.data());
    _exit(127);
  }
  int st = 0;
  waitpid(pid, &st, 0);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
  r.out = readfile(outpath);
  return r;
}

RunResult runwarpforge(const std::string &deck, const std::string &cwd, const std::map<std::string, std::string> &env) {
  return runprogram(WARPFORGE_EXE, {deck}, cwd, env);
}

RunResult rungenjob(const std::string &folder, const std::vector<std::string> &args) {
  std::vector<std::string> a{folder};
  a.insert(a.end(), args.begin(), args.end());
  return runprogram(GENJOB_EXE, a, folder);
}

std::string maskafter(const std::string &text, const std::string &prefix, const std::string &chars,
                      const std::string &replacement) {
  std::string out;
  size_t from = 0;
  for (size_t p = text.find(prefix); p != std::string::npos; p = text.find(prefix, from)) {
    const size_t start = p + prefix.size(), end = std::min(text.find_first_not_of(chars, start), text.size());
    out.append(text, from, p - from).append(end > start ? replacement : prefix);
    from = end;
  }
  return out.append(text, from, std::string::npos);
}

std::vector<float> binarystlfacets(const std::string &b) {
  uint32_t n = 0;
  if (b.size() < 84) return {};
  std::memcpy(&n, b.data() + 80, 4);
  if (b.size() != 84 + 50ull * n) return {};
  std::vector<float> c(9ull * n);
  for (uint32_t t = 0; t < n; ++t) std::memcpy(&c[9ull * t], b.data() + 84 + 50ull * t + 12, 36);
  return c;
}

}  // namespace wft

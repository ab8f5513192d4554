// SPDX-License-Identifier: GPL-2.0-or-later
#include "control/messages.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "control/settings.h"
#include "control/simwpl.h"
#include "control/textio.h"

namespace fs = std::filesystem;

namespace wf {

// ---------------------------------------------------------------- console

void say(RunState &, std::string_view text) {
  std::fputc(' ', stdout);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fputc('\n', stdout);
}

void sayblank(RunState &) { std::fputc('\n', stdout); }

void sayraw(RunState &, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fputc('\n', stdout);
}

void conflush(RunState &) { std::fflush(stdout); }

std::string conint(const RunState &rs, long long v) {
  if (!rs.conhex) return std::to_string(v);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%llX", static_cast<unsigned long long>(v));
  return buf;
}

void printline(RunState &rs, std::string_view text) {
  std::lock_guard<std::mutex> lock(rs.consolelock);
  say(rs, rtrim(text));
}

void printwarning(RunState &rs) {
  ++rs.nwarnings;
  sayblank(rs);
  say(rs, "*** WARNING: " + std::to_string(rs.nwarnings));
}

// ---------------------------------------------------------------- signal stream

namespace {

void signalline(RunState &rs, const std::string &line) {
  if (!rs.signalunit) return;
  std::fwrite(line.data(), 1, line.size(), rs.signalunit);
  std::fputc('\n', rs.signalunit);
  std::fflush(rs.signalunit);
}

uint32_t nextrandom(uint32_t &state) {
  // xorshift32 on a non-zero state; tags only need to differ between messages and runs.
  if (state == 0) state = 0x9E3779B9u;
  state ^= state << 13;
  state ^= state >> 17;
  state ^= state << 5;
  return state;
}

std::string hexupper(uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%X", v);
  return buf;
}

}  // namespace

std::string jsonescape(std::string_view text) {
  std::string s = nlohmann::json(std::string(text)).dump(-1, ' ', false,
                                                          nlohmann::json::error_handler_t::replace);
  return s.substr(1, s.size() - 2);
}

void finishedfilesignal(RunState &rs, const std::string &name) {
  signalline(rs, "{\"information\": {\"finished writing file\": \"" + jsonescape(rtrim(name)) + "\"}}");
}

void finishsignal(RunState &rs, int status) {
  signalline(rs, status == 1 ? "{\"information\": \"successful finish\"}"
                             : "{\"information\": \"failed finish\"}");
}

void reportprogress(RunState &rs, int edge, int nedges, bool, int percent) {
  char pct[16];
  std::snprintf(pct, sizeof pct, "%3d", percent);
  sayraw(rs, std::string(" Progress = ") + pct + " % (edge " + std::to_string(edge) + " of " +
                 std::to_string(nedges) + ")");
  signalline(rs, "{\"progress\": " + realtext(percent / 100.0) + "}");
}

void sendwaypoint(RunState &rs, const std::string &value, int valuelength, int severity) {
  std::string name = "KelSolver.Null";
  name = severity == 1 ? "KelSolver.Error" : "KelSolver.CriticalWarning";
  simwplsendsinglewaypoint(rs, name.c_str(), static_cast<int>(name.size()), value.c_str(),
                           valuelength);
}

// ---------------------------------------------------------------- coded messages

namespace {

// Replaces %n by the trimmed variable n; an unknown or unreadable number stays as it is.
// Returns whether any placeholder was replaced.
bool substitute(std::string &text, const std::vector<std::string> &vars) {
  bool replaced = false;
  std::string t = rtrim(text);
  size_t i = 0;
  while (i < t.size()) {
    if (t[i] != '%') {
      ++i;
      continue;
    }
    size_t j = i + 1;
    while (j < t.size() && std::isdigit(static_cast<unsigned char>(t[j]))) ++j;
    if (j == i + 1) {
      i = j;
      continue;
    }
    long long n = 0;
    bool ok = j - i - 1 <= 9;
    if (ok) n = std::stoll(t.substr(i + 1, j - i - 1));
    if (!ok || n < 1 || n > static_cast<long long>(vars.size())) {
      i = j;
      continue;
    }
    std::string v = rtrim(vars[static_cast<size_t>(n - 1)]);
    t.replace(i, j - i, v);
    i += v.size();
    replaced = true;
  }
  text = t;
  return replaced;
}

}  // namespace

void postmessage(RunState &rs, int severity, int code, const std::vector<std::string> &given) {
  std::vector<std::string> vars = given;
  if (vars.empty()) vars.emplace_back();
  std::string tag = hexupper(nextrandom(rs.rngstate) & 0x7FFFFFFFu);
  sayblank(rs);
  say(rs, " Signal tag " + tag);
  std::string group, type;
  if (severity == 1) {
    group = "errors";
    type = "error";
    say(rs, "ERROR");
  } else {
    group = "critical warnings";
    type = "critical warning";
    ++rs.ncritical;
    say(rs, "*** CRITICAL WARNING: " + std::to_string(rs.ncritical));
  }
  say(rs, " Code " + std::to_string(code));
  std::string text = catalogtext(rs, group, code);
  bool replaced = substitute(text, vars);
  say(rs, text);
  sayblank(rs);
  std::string list;
  if (replaced) {
    for (size_t i = 0; i < vars.size(); ++i) {
      if (i) list += ", ";
      list += "\"" + jsonescape(rtrim(vars[i])) + "\"";
    }
  }
  signalline(rs, "{\"message\": {\"type\": \"" + type + "\", \"code\": " + std::to_string(code) +
                     ", \"variables\": [" + list + "], \"tag\": \"Signal tag " + tag + "\"}}");
  std::string value = std::to_string(code);
  sendwaypoint(rs, value, static_cast<int>(value.size()), severity);
}

void abortrun(RunState &rs) {
  sayblank(rs);
  say(rs, "ABORTING");
  sayblank(rs);
  std::fflush(stdout);
  if (rs.signalunit) std::fflush(rs.signalunit);
  throw RunAborted();
}

// ---------------------------------------------------------------- checks

void checkread(RunState &rs, int status, const std::string &file) {
  if (status == 0) return;
  if (status == IOSTAT_EOR)
    postmessage(rs, 1, 27, {file});
  else if (status == IOSTAT_EOF)
    postmessage(rs, 1, 28, {file});
  else
    postmessage(rs, 1, 29, {text256(file), std::to_string(status)});
  abortrun(rs);
}

void checkexists(RunState &rs, const std::string &file) {
  if (fileexists(file)) return;
  postmessage(rs, 1, 30, {file, file});
  abortrun(rs);
}

void checkopen(RunState &rs, int status, const std::string &file) {
  if (status == 0) return;
  postmessage(rs, 1, 31, {text256(file), std::to_string(status), text256(file)});
  abortrun(rs);
}

void checkalloc(RunState &rs, int status, const std::string &label) {
  if (status == 0) return;
  postmessage(rs, 1, 32, {label});
  abortrun(rs);
}

void checkarg(RunState &rs, int status, const std::string &value) {
  if (status == 0) return;
  postmessage(rs, 1, status == -1 ? 33 : 34, {value});
  abortrun(rs);
}

void checkenv(RunState &rs, int status, const std::string &name, const std::string &value) {
  if (status == 0) return;
  if (status == -1)
    postmessage(rs, 1, 35, {text256(name), text256(value)});
  else if (status == 1)
    postmessage(rs, 1, 36, {name});
  else if (status == 2)
    postmessage(rs, 1, 37, {name});
  else
    postmessage(rs, 1, 38, {text256(name), text256(value), std::to_string(status)});
  abortrun(rs);
}

// ---------------------------------------------------------------- text helpers

std::string rtrim(std::string_view text) {
  size_t n = text.size();
  while (n > 0 && text[n - 1] == ' ') --n;
  return std::string(text.substr(0, n));
}

std::string inttext(long long value, bool group) {
  std::string s = std::to_string(value);
  if (!group || s.size() <= 4) return s;
  bool neg = s[0] == '-';
  std::string digits = neg ? s.substr(1) : s;
  std::string out;
  int count = 0;
  for (size_t i = digits.size(); i-- > 0;) {
    out.insert(out.begin(), digits[i]);
    if (++count % 3 == 0 && i > 0) out.insert(out.begin(), ',');
  }
  return neg ? "-" + out : out;
}

std::string realtext(double value) { return numtext(value); }

std::string text256(const std::string &text) {
  std::string s = text.substr(0, 256);
  s.resize(256, ' ');
  return s;
}

std::string walltext(double seconds) {
  if (!(seconds >= 0)) seconds = 0;
  // Hundredths are cut, not rounded; the tiny factor keeps 0.29 from becoming 0.28.
  long long cs = static_cast<long long>(std::floor(seconds * 100.0 * (1.0 + 1e-12)));
  long long days = cs / 8640000;
  cs -= days * 8640000;
  int h = static_cast<int>(cs / 360000);
  cs -= h * 360000LL;
  int m = static_cast<int>(cs / 6000);
  cs -= m * 6000LL;
  int s = static_cast<int>(cs / 100);
  int c = static_cast<int>(cs - s * 100LL);
  char buf[64];
  std::snprintf(buf, sizeof buf, "%02d:%02d:%02d.%02d", h, m, s, c);
  if (days == 0) return buf;
  return std::to_string(days) + " day" + (days > 1 ? "s" : "") + " " + buf;
}

bool fileexists(const std::string &path) {
  struct stat st;
  if (path.empty()) return false;
  return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

std::string stripext(const std::string &path) {
  size_t dot = path.find_last_of('.');
  if (dot == std::string::npos) return path;
  return path.substr(0, dot);
}

double wallseconds(const RunState &rs) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - rs.starttime).count();
}

// ---------------------------------------------------------------- signal file

std::string tempfilename(RunState &rs, const std::string &folder, const std::string &prefix,
                         const std::string &suffix) {
  if (!rs.tempseeded) {
    rs.temprng = static_cast<uint32_t>(
        std::chrono::system_clock::now().time_since_epoch().count() ^ (getpid() * 2654435761u));
    rs.tempseeded = true;
  }
  for (;;) {
    float r = static_cast<float>(nextrandom(rs.temprng) >> 8) * (1.0f / 16777216.0f);
    uint32_t bits;
    std::memcpy(&bits, &r, sizeof bits);
    char hex[16];
    std::snprintf(hex, sizeof hex, "%8X", bits);  // leading zeros stand as blanks
    std::string name = rtrim(folder) + "/" + rtrim(prefix) + hex + rtrim(suffix);
    if (!fileexists(name)) return name;
  }
}

void opensignalfile(RunState &rs) {
  std::string base;
  const char *tmp = std::getenv("CRVT_TSR_SIM_TMP");
  if (tmp && !rtrim(tmp).empty()) {
    base = rtrim(tmp);
  } else {
    const char *cache = std::getenv("XDG_CACHE_HOME");
    if (cache && !rtrim(cache).empty()) {
      base = rtrim(cache);
    } else {
      const char *home = std::getenv("HOME");
      checkenv(rs, home ? 0 : 1, "HOME", "");
      std::string h = home;
      checkenv(rs, h.size() > 8192 ? -1 : 0, "HOME", h);
      base = rtrim(h) + "/.cache";
    }
    base += "/Corvanta";
  }
  std::error_code ec;
  fs::create_directories(base, ec);
  std::string folder = base + "/ProjectKel";
  fs::create_directories(folder, ec);
  rs.signalpath = rtrim(tempfilename(rs, folder, "sim", ".simsignal"));
  errno = 0;
  rs.signalunit = std::fopen(rs.signalpath.c_str(), "w+");
  checkopen(rs, rs.signalunit ? 0 : (errno ? errno : IOSTAT_IOERR), rs.signalpath);
  std::fputs("{\"schema\": \"simsignal-1.0\"}\n", rs.signalunit);
  // Seed the tag generator from the time of day and the process, so that tags differ between
  // runs of one moment.
  auto now = std::chrono::system_clock::now();
  std::time_t tt = std::chrono::system_clock::to_time_t(now);
  std::tm lt{};
  localtime_r(&tt, &lt);
  uint32_t ms = static_cast<uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
  uint32_t seed = ((((static_cast<uint32_t>(lt.tm_mday) * 24u + static_cast<uint32_t>(lt.tm_hour)) * 60u +
                     static_cast<uint32_t>(lt.tm_min)) * 60u + static_cast<uint32_t>(lt.tm_sec)) * 1000u + ms) *
                  static_cast<uint32_t>(getpid());
  rs.rngstate = seed;
}

void movesignalfile(RunState &rs, const std::string &extension) {
  std::string path = rtrim(rs.deckstem) + extension;
  errno = 0;
  std::FILE *out = std::fopen(path.c_str(), "w");
  checkopen(rs, out ? 0 : (errno ? errno : IOSTAT_IOERR), path);
  if (rs.signalunit) {
    std::fflush(rs.signalunit);
    std::rewind(rs.signalunit);
    char buf[8192];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, rs.signalunit)) > 0) std::fwrite(buf, 1, n, out);
    std::fclose(rs.signalunit);
  }
  std::fflush(out);
  std::error_code ec;
  if (!rs.signalpath.empty()) fs::remove(rs.signalpath, ec);
  rs.signalunit = out;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/reporter.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "base/fatal.h"
#include "base/text.h"
#include "base/textio.h"

namespace fs = std::filesystem;

namespace wf {

namespace {

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

// Replaces %n by the trimmed variable n; an unknown or unreadable number stays as it is, and
// the walk goes on behind the inserted text. Returns whether any placeholder was replaced.
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
    const bool ok = j - i - 1 <= 9;
    if (ok) n = std::stoll(t.substr(i + 1, j - i - 1));
    if (!ok || n < 1 || n > static_cast<long long>(vars.size())) {
      i = j;
      continue;
    }
    const std::string v = rtrim(vars[static_cast<size_t>(n - 1)]);
    t.replace(i, j - i, v);
    i += v.size();
    replaced = true;
  }
  text = t;
  return replaced;
}

}  // namespace

Reporter::Reporter(std::FILE *console) : console_(console) {}

Reporter::~Reporter() {
  if (signal_) std::fclose(signal_);
}

// ---------------------------------------------------------------- console

void Reporter::line(std::string_view a, std::string_view b) {
  if (!a.empty()) std::fwrite(a.data(), 1, a.size(), console_);
  if (!b.empty()) std::fwrite(b.data(), 1, b.size(), console_);
  std::fputc('\n', console_);
  std::fflush(console_);
}

void Reporter::say(std::string_view text) { line(" ", text); }

void Reporter::blank() { line({}); }

void Reporter::raw(std::string_view text) { line(text); }

void Reporter::printline(std::string_view text) {
  std::lock_guard<std::mutex> guard(lock_);
  say(rtrim(text));
}

void Reporter::printwarning() {
  ++nwarnings_;
  blank();
  say("*** WARNING: " + std::to_string(nwarnings_));
}

std::string Reporter::integer(int v) const {
  if (numbers_ == NumberMode::decimal) return std::to_string(v);
  return integer(static_cast<long long>(static_cast<uint32_t>(v)));
}

std::string Reporter::integer(long long v) const {
  if (numbers_ == NumberMode::decimal) return std::to_string(v);
  char buf[32];
  std::snprintf(buf, sizeof buf, "%llX", static_cast<unsigned long long>(v));
  return buf;
}

std::string Reporter::hexstatus(int status) {
  // Kept deliberately: the switch is never undone; every integer the console prints after a
  // status in hexadecimal (a later pass's counts, a repair's facet count) comes out in
  // hexadecimal, and logs of such runs read so. [pinned: Reporter.HexStatusSwitchesNumbersForGood]
  numbers_ = NumberMode::hexadecimal;
  return integer(static_cast<long long>(static_cast<uint32_t>(status)));
}

// ---------------------------------------------------------------- coded messages

void Reporter::post(Severity severity, int code, const std::vector<std::string> &given) {
  std::vector<std::string> vars = given;
  if (vars.empty()) vars.emplace_back();
  const std::string tag = hexupper(nextrandom(tagstate_) & 0x7FFFFFFFu);
  blank();
  say(" Signal tag " + tag);
  std::string group, type;
  if (severity == Severity::error) {
    group = "errors";
    type = "error";
    say("ERROR");
  } else {
    group = "critical warnings";
    type = "critical warning";
    ++ncritical_;
    say("*** CRITICAL WARNING: " + std::to_string(ncritical_));
  }
  say(" Code " + std::to_string(code));
  std::string text = catalogtext(group, code);
  const bool replaced = substitute(text, vars);
  say(text);
  blank();
  std::string list;
  if (replaced) {
    for (size_t i = 0; i < vars.size(); ++i) {
      if (i) list += ", ";
      list += "\"" + jsonescape(rtrim(vars[i])) + "\"";
    }
  }
  signalline("{\"message\": {\"type\": \"" + type + "\", \"code\": " + std::to_string(code) + ", \"variables\": [" +
             list + "], \"tag\": \"Signal tag " + tag + "\"}}");
  // The way point: the code as text, the event name by severity.
  const std::string value = std::to_string(code);
  std::string name = "KelSolver.Null";
  name = severity == Severity::error ? "KelSolver.Error" : "KelSolver.CriticalWarning";
  telemetry_.sendsinglewaypoint(name.c_str(), static_cast<int>(name.size()), value.c_str(),
                                static_cast<int>(value.size()));
}

void Reporter::abortlines() {
  blank();
  say("ABORTING");
  blank();
  if (signal_) std::fflush(signal_);
}

// ---------------------------------------------------------------- signal stream

void Reporter::signalline(const std::string &text) {
  if (!signal_) return;
  std::fwrite(text.data(), 1, text.size(), signal_);
  std::fputc('\n', signal_);
  std::fflush(signal_);
}

void Reporter::progress(int edge, int nedges, int percent) {
  char pct[16];
  std::snprintf(pct, sizeof pct, "%3d", percent);
  raw(std::string(" Progress = ") + pct + " % (edge " + std::to_string(edge) + " of " + std::to_string(nedges) + ")");
  signalline("{\"progress\": " + numtext(percent / 100.0) + "}");
}

void Reporter::finishedfile(const std::string &name) {
  signalline("{\"information\": {\"finished writing file\": \"" + jsonescape(rtrim(name)) + "\"}}");
}

void Reporter::finish(int status) {
  signalline(status == 1 ? "{\"information\": \"successful finish\"}" : "{\"information\": \"failed finish\"}");
}

std::string Reporter::tempfilename(const std::string &folder, const std::string &prefix, const std::string &suffix) {
  if (!tempseeded_) {
    tempstate_ =
        static_cast<uint32_t>(std::chrono::system_clock::now().time_since_epoch().count() ^ (getpid() * 2654435761u));
    tempseeded_ = true;
  }
  for (;;) {
    const float r = static_cast<float>(nextrandom(tempstate_) >> 8) * (1.0f / 16777216.0f);
    uint32_t bits;
    std::memcpy(&bits, &r, sizeof bits);
    char hex[16];
    std::snprintf(hex, sizeof hex, "%8X", bits);  // leading zeros stand as blanks
    const std::string name = rtrim(folder) + "/" + rtrim(prefix) + hex + rtrim(suffix);
    if (!fileexists(name)) return name;
  }
}

void Reporter::opensignal() {
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
      checkenv(home ? 0 : 1, "HOME", "");
      const std::string h = home;
      checkenv(h.size() > 8192 ? -1 : 0, "HOME", h);
      base = rtrim(h) + "/.cache";
    }
    base += "/Corvanta";
  }
  std::error_code ec;
  fs::create_directories(base, ec);
  const std::string folder = base + "/ProjectKel";
  fs::create_directories(folder, ec);
  signalpath_ = rtrim(tempfilename(folder, "sim", ".simsignal"));
  errno = 0;
  signal_ = std::fopen(signalpath_.c_str(), "w+");
  checkopen(signal_ ? 0 : (errno ? errno : IOSTAT_IOERR), signalpath_);
  std::fputs("{\"schema\": \"simsignal-1.0\"}\n", signal_);
  // Tags differ between runs of one moment: the seed mixes the time of day with the process.
  const auto now = std::chrono::system_clock::now();
  const std::time_t tt = std::chrono::system_clock::to_time_t(now);
  std::tm lt{};
  localtime_r(&tt, &lt);
  const uint32_t ms = static_cast<uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
  tagstate_ = ((((static_cast<uint32_t>(lt.tm_mday) * 24u + static_cast<uint32_t>(lt.tm_hour)) * 60u +
                 static_cast<uint32_t>(lt.tm_min)) *
                    60u +
                static_cast<uint32_t>(lt.tm_sec)) *
                   1000u +
               ms) *
              static_cast<uint32_t>(getpid());
}

void Reporter::movesignal(const std::string &path) {
  errno = 0;
  std::FILE *out = std::fopen(path.c_str(), "w");
  checkopen(out ? 0 : (errno ? errno : IOSTAT_IOERR), path);
  if (signal_) {
    std::fflush(signal_);
    std::rewind(signal_);
    char buf[8192];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, signal_)) > 0) std::fwrite(buf, 1, n, out);
    std::fclose(signal_);
  }
  std::fflush(out);
  std::error_code ec;
  if (!signalpath_.empty()) fs::remove(signalpath_, ec);
  signal_ = out;
}

// ---------------------------------------------------------------- catalogue

void Reporter::loadcatalogue(const std::string &path) {
  catalogue_ = nlohmann::json::object();
  catalogueok_ = false;
  blank();
  say(" Loading file: " + path + "...");
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    say("[json.exception.file_error] cannot open file " + path);
    return;
  }
  try {
    catalogue_ = nlohmann::json::parse(in);
    catalogueok_ = true;
    say(" ...success");
  } catch (const nlohmann::json::exception &e) {
    catalogue_ = nlohmann::json::object();
    say(e.what());
  }
}

std::string Reporter::catalogtext(const std::string &group, int code) {
  if (!catalogueok_) return "";
  const std::string key = std::to_string(code);
  if (catalogue_.is_object()) {
    auto g = catalogue_.find(group);
    if (g != catalogue_.end() && g->is_object()) {
      auto t = g->find(key);
      if (t != g->end() && t->is_string()) return t->get<std::string>();
    }
  }
  // Kept deliberately: the first path that is not found leaves the catalogue in its failed
  // state for the rest of the run, so later messages lose their words too (never the event).
  // [pinned: Reporter.CatalogueFailuresAreStickyAndNeverFatal]
  catalogueok_ = false;
  return "";
}

double Reporter::wallseconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

}  // namespace wf

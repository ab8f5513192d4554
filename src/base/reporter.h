// SPDX-License-Identifier: GPL-3.0-or-later
// Reporter: the two channels of a run and what they share.
//
// The console is the log for a person. Every line is written whole and flushed at once, so that
// a calling program sees it as it comes and nothing is lost if the process dies. Free-form lines
// (say) begin with one blank; lines built to a fixed layout (raw) are written as given.
//
// The signal stream is a file of one-line JSON events for the calling program: the header, coded
// messages, progress, finished files and the successful finish, each flushed as it is written.
// It starts in a temporary file below $CRVT_TSR_SIM_TMP/ProjectKel (else the cache folder) and
// moves beside the deck once the deck is known.
//
// A coded message goes to the console (tag, ERROR or the numbered critical warning, code, text
// from the catalogue with its placeholders filled), then to the signal stream, then to the
// telemetry. The catalogue is simsolver.arb beside the executable; without it texts are empty.
//
// Everything here runs on the main thread, but printline, which takes the console lock.
// opensignal and movesignal may throw Fatal (messages 31, 35-38); nothing else throws.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "base/telemetry.h"

namespace wf {

// How grave a coded message is: an error ends the run, a critical warning does not.
enum class Severity { error, critical };

// How the console prints integers: decimal until the first status printed in hexadecimal, then
// upper-case hexadecimal for the rest of the run (a failed 3MF conversion prints its status so,
// and every integer printed after it follows: a later pass's counts, a later repair's facecount).
enum class NumberMode { decimal, hexadecimal };

class Reporter {
 public:
  // Console lines go to `console` (standard output by default).
  explicit Reporter(std::FILE *console = stdout);
  ~Reporter();
  Reporter(const Reporter &) = delete;
  Reporter &operator=(const Reporter &) = delete;

  // ---- console
  void say(std::string_view text);  // " " + text
  void blank();                     // an empty line
  void raw(std::string_view text);  // text as given
  // One blank and the trimmed text, under the console lock.
  void printline(std::string_view text);
  // A numbered warning: the count goes up, then a blank line and "*** WARNING: " with it.
  void printwarning();
  // An integer as the console prints it, in the number mode. In hexadecimal a negative value
  // shows the bits of its own width, as a stream prints it: an int as 8 digits, a long long as 16.
  std::string integer(int value) const;
  std::string integer(long long value) const;
  // A 32-bit status in hexadecimal; it switches the number mode to hexadecimal for good.
  std::string hexstatus(int status);
  NumberMode numbermode() const { return numbers_; }
  int warnings() const { return nwarnings_; }
  int criticals() const { return ncritical_; }

  // ---- coded messages
  // An empty vars list stands for one empty variable. Returns after the console, signal and
  // telemetry parts.
  void post(Severity severity, int code, const std::vector<std::string> &vars = {});
  // The end of an aborted run on the console: a blank line, "ABORTING", a blank line.
  void abortlines();

  // ---- signal stream
  // Opens the temporary stream and writes its header; seeds the tags. May throw Fatal.
  void opensignal();
  // Moves the stream to `path` (its text goes along) and removes the temporary file.
  void movesignal(const std::string &path);
  // " Progress = ppp % (edge e of n)" on the console and the progress event.
  void progress(int edge, int nedges, int percent);
  void finishedfile(const std::string &name);
  // Status 1: the successful finish event; any other: the failed one.
  void finish(int status);
  const std::string &temporarysignal() const { return signalpath_; }

  // ---- catalogue
  // Prints the loading lines and loads the catalogue; a failure prints the reason and leaves
  // the catalogue empty.
  void loadcatalogue(const std::string &path);
  // The text at group.code; empty when not found, and from the first miss on for good.
  std::string catalogtext(const std::string &group, int code);

  // ---- telemetry and clock
  Telemetry &telemetry() { return telemetry_; }
  double wallseconds() const;  // since the Reporter was made, at the start of the process

  // A file name made of folder, "/", prefix, 8 hexadecimal digits (leading zeros as blanks)
  // and suffix, at which no file exists.
  std::string tempfilename(const std::string &folder, const std::string &prefix, const std::string &suffix);

 private:
  void line(std::string_view a, std::string_view b = {});
  void signalline(const std::string &text);

  std::FILE *console_;
  std::mutex lock_;
  NumberMode numbers_ = NumberMode::decimal;
  int nwarnings_ = 0;
  int ncritical_ = 0;
  uint32_t tagstate_ = 0;
  uint32_t tempstate_ = 0;
  bool tempseeded_ = false;
  std::FILE *signal_ = nullptr;
  std::string signalpath_;
  nlohmann::json catalogue_;
  bool catalogueok_ = false;
  Telemetry telemetry_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace wf

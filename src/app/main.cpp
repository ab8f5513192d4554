// SPDX-License-Identifier: GPL-3.0-or-later
// warpforge: moves the surfaces of a part against the simulated distortion of its build.
//
// main is the one place that catches: a Fatal carries the coded message of the condition that
// ends the run (posted here, after which "ABORTING"); anything else that escapes (an allocation
// without a label of its own, the C++ library) is reported as a failed allocation or with its
// text, never left uncaught. The exit status is 0 at the end of a run and 255 for an aborted one.
#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "app/driver.h"
#include "base/fatal.h"
#include "base/reporter.h"

namespace {

constexpr const char *usage =
    "usage: warpforge <control deck>\n"
    "\n"
    "Moves the surfaces of a part against the distortion that a simulation of its build\n"
    "found, and writes the pre-deformed STL (and on request a text report, a VTK file, a\n"
    "coloured 3MF package and a plain 3MF file). The control deck names the solver input\n"
    "file of the simulation (*INPU) or a scanned geometry (*SCNG) and sets the numbers of\n"
    "the warp. Progress and messages go to the console and, as JSON lines, to\n"
    "<deck stem>.wrpsimsignal beside the deck.\n"
    "\n"
    "  --help     this text\n"
    "  --version  the version\n";

}  // namespace

int main(int argc, char **argv) {
  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "--version")) {
    if (args[0] == "--help")
      std::fputs(usage, stdout);
    else
      std::printf("warpforge %s\n", WARPFORGE_BUILD_ID);
    return 0;
  }

  // The run allocates and frees arrays of hundreds of megabytes in turn. Kept in the heap instead
  // of going back to the system, freed memory is taken again without fresh pages to be faulted
  // in and zeroed, which is a good part of the time of the surface preparation.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);

  wf::Reporter rep;
  int status = 255;
  try {
    status = wf::runwarpforge(rep, args);
  } catch (const wf::Fatal &f) {
    if (!f.iolayer.empty()) {
      std::fflush(stdout);
      std::fprintf(stderr, "%s\n", f.iolayer.c_str());
      return 255;
    }
    if (f.code != 0) rep.post(wf::Severity::error, f.code, f.vars);
    rep.abortlines();
  } catch (const std::bad_alloc &) {
    rep.post(wf::Severity::error, 32, {"warpforge, memory, 1"});
    rep.abortlines();
  } catch (const std::exception &e) {
    rep.blank();
    rep.say("ERROR");
    rep.say(e.what());
    rep.abortlines();
  }
  std::fflush(stdout);
  return status;
}

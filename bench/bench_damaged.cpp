// SPDX-License-Identifier: GPL-3.0-or-later
// Damaged whole jobs (tests/shapes.h: a vertex 3e10 mm away, every vertex not a number, a
// corrupt triangle count either way, a level limit of 268435456), each run whole: its wall time,
// its peak memory and how it ended. Each must end within 60 s
// and 4 GB with a result or a coded message.
// Then the sample job with its part as made, moved 45 mm along x (just outside the node grid) and
// moved 1e4 mm (far outside it), timed whole: a far query costs what a near one does.
//   bench_damaged [folder (/tmp/bench_damaged)]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "shapes.h"
#include "testutil.h"

int main(int argc, char **argv) {
  const std::string root = argc > 1 ? argv[1] : "/tmp/bench_damaged";
  std::filesystem::remove_all(root);
  int bad = 0;
  for (wft::JobDamage d : {wft::JobDamage::farvertex, wft::JobDamage::nanvertices, wft::JobDamage::count2e30,
                           wft::JobDamage::countneg, wft::JobDamage::maxrefine}) {
    const std::string dir = root + "/" + std::to_string(int(d));
    std::filesystem::create_directories(dir);
    const std::string deck = wft::damagedjob(dir, d);
    const auto t0 = std::chrono::steady_clock::now();
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
      if (chdir(dir.c_str()) != 0 || !std::freopen("console.txt", "w", stdout)) _exit(127);
      setenv("CRVT_TSR_SIM_TMP", (dir + "/tmp").c_str(), 1);
      execl(WARPFORGE_EXE, WARPFORGE_EXE, deck.c_str(), static_cast<char *>(nullptr));
      _exit(127);
    }
    int status = 0;
    struct rusage use {};
    wait4(pid, &status, 0, &use);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    // The largest process so far, the repair processes the runs waited for included.
    struct rusage children {};
    getrusage(RUSAGE_CHILDREN, &children);
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    const std::string console = wft::readfile(dir + "/console.txt");
    const size_t at = console.find("  Code ");
    const std::string ended = code == 0                 ? "result"
                              : at != std::string::npos ? console.substr(at + 2, console.find('\n', at) - at - 2)
                                                        : "no message";
    const bool ok = seconds <= 60 && use.ru_maxrss <= 4L * 1024 * 1024 && (code == 0 || at != std::string::npos);
    bad += !ok;
    std::printf("%-28s %6.2f s  run %5.0f MB (largest process so far %5.0f MB)  exit %3d  %-8s %s\n",
                wft::jobdamagename(d), seconds, use.ru_maxrss / 1024.0, children.ru_maxrss / 1024.0, code,
                ended.c_str(), ok ? "" : "(over 60 s, over 4 GB, or no message)");
  }
  // A far query costs what a near one costs: the sample job as made, and with its part moved
  // along x just outside and far outside the node grid, without *TSRD.
  for (const double shift : {0.0, 45.0, 1e4}) {
    const std::string dir = root + "/shift" + std::to_string(int(shift));
    std::filesystem::create_directories(dir);
    wft::rungenjob(dir, {"--tris", "200000", "--nodes", "300000"});
    std::string stl = wft::readfile(dir + "/part.stl");
    for (size_t t = 0; 84 + 50 * t + 50 <= stl.size(); ++t)
      for (size_t k = 0; k < 3; ++k) {
        float x;
        std::memcpy(&x, stl.data() + 84 + 50 * t + 12 + 12 * k, 4);
        x = float(x + shift);
        std::memcpy(stl.data() + 84 + 50 * t + 12 + 12 * k, &x, 4);
      }
    wft::writefile(dir + "/part.stl", stl);
    wft::writefile(dir + "/far.deck", "*INPU\njob\n*IOFF\n-1\n*N3DM\n*MAXR\n0\n");
    const auto t0 = std::chrono::steady_clock::now();
    const wft::RunResult r = wft::runwarpforge("far.deck", dir);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("200 K triangles, 300 K nodes, part %s: %.2f s, exit %d\n",
                shift == 0    ? "as made              "
                : shift < 100 ? "moved 45 mm (outside)"
                              : "moved 1e4 mm         ",
                seconds, r.status);
  }
  return bad ? 1 : 0;
}

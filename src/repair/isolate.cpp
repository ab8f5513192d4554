// SPDX-License-Identifier: GPL-3.0-or-later
// The child writes its facet count (8 bytes) and then the facets to a pipe and leaves with
// _exit, so that nothing of the parent's buffered output is written twice. The parent reads
// while the child runs and kills it at the deadline.
#include "repair/isolate.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "repair/meshfix.h"
#include "repair/meshrepair.h"

namespace wf {

namespace {

constexpr int CHILD_NOMEM = 3;
constexpr int CHILD_WRITE = 4;

bool writeall(int fd, const void *data, size_t n) {
  const char *p = static_cast<const char *>(data);
  while (n > 0) {
    ssize_t w = ::write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += w;
    n -= size_t(w);
  }
  return true;
}

// Address space in use now (the child starts with the parent's mappings).
size_t addressspace() {
  std::FILE *f = std::fopen("/proc/self/statm", "r");
  if (!f) return 0;
  unsigned long pages = 0;
  if (std::fscanf(f, "%lu", &pages) != 1) pages = 0;
  std::fclose(f);
  return size_t(pages) * size_t(sysconf(_SC_PAGESIZE));
}

[[noreturn]] void child(int fd, const std::vector<float> &xyz, RepairPass pass, float tolerance, size_t memlimit) {
  int devnull = ::open("/dev/null", O_WRONLY);
  if (devnull >= 0) {  // admesh talks on stdout; the console is ours
    ::dup2(devnull, 1);
    ::dup2(devnull, 2);
  }
  if (memlimit > 0) {
    struct rlimit rl;
    rl.rlim_cur = rl.rlim_max = memlimit;
    ::setrlimit(RLIMIT_AS, &rl);
  }
  stl_file stl;
  int64_t n = int64_t(xyz.size() / 9);
  if (!meshfix::loadfacets(stl, xyz.data(), n)) ::_exit(CHILD_NOMEM);
  pass(stl, tolerance);
  if (stl.stats.number_of_facets < 0) ::_exit(CHILD_NOMEM);
  int64_t m = stl.stats.number_of_facets;
  if (!writeall(fd, &m, sizeof m)) ::_exit(CHILD_WRITE);
  for (int64_t i = 0; i < m; ++i)
    if (!writeall(fd, &stl.facet_start[i].vertex[0], 36)) ::_exit(CHILD_WRITE);
  ::_exit(0);
}

}  // namespace

int runisolated(std::vector<float> &xyz, RepairPass pass, float tolerance, std::string &error, double seconds) {
  const int64_t n = int64_t(xyz.size() / 9);
  if (seconds <= 0) seconds = 60.0 + 50e-6 * double(n);
  size_t inuse = addressspace();
  size_t memlimit = inuse > 0 ? inuse + (size_t(1) << 30) + size_t(n) * 2048 : 0;

  int fds[2];
  if (::pipe(fds) != 0) {
    error = std::string("could not start the repair process: ") + std::strerror(errno);
    return MESHREPAIR_EREPAIR;
  }
  std::fflush(stdout);
  std::fflush(stderr);
  pid_t pid = ::fork();
  if (pid < 0) {
    error = std::string("could not start the repair process: ") + std::strerror(errno);
    ::close(fds[0]);
    ::close(fds[1]);
    return MESHREPAIR_EREPAIR;
  }
  if (pid == 0) {
    ::close(fds[0]);
    child(fds[1], xyz, pass, tolerance, memlimit);
  }
  ::close(fds[1]);

  // Read everything the child sends, up to the deadline.
  using clock = std::chrono::steady_clock;
  const auto deadline =
      clock::now() + std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(seconds));
  unsigned char head[8];
  bool gothead = false;
  int64_t m = -1;
  size_t have = 0, want = sizeof head;  // bytes of the count, then of the facets
  std::vector<float> out;
  bool timedout = false, readerror = false, overrun = false;
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now());
    if (left.count() <= 0) {
      timedout = true;
      break;
    }
    struct pollfd p = {fds[0], POLLIN, 0};
    int r = ::poll(&p, 1, int(std::min<long long>(left.count(), 1000)));
    if (r < 0) {
      if (errno == EINTR) continue;
      readerror = true;
      break;
    }
    if (r == 0) continue;
    char scratch[64];
    char *dst = scratch;
    size_t room = sizeof scratch;
    if (!gothead) {
      dst = reinterpret_cast<char *>(head) + have;
      room = want - have;
    } else if (have < want) {
      dst = reinterpret_cast<char *>(out.data()) + have;
      room = want - have;
    }
    ssize_t got = ::read(fds[0], dst, room);
    if (got < 0) {
      if (errno == EINTR) continue;
      readerror = true;
      break;
    }
    if (got == 0) break;
    if (dst == scratch) {  // more than the count announced
      overrun = true;
      break;
    }
    have += size_t(got);
    if (!gothead && have == want) {
      std::memcpy(&m, head, sizeof m);
      if (m < 0 || m > INT32_MAX) {
        overrun = true;
        break;
      }
      gothead = true;
      out.resize(size_t(m) * 9);
      have = 0;
      want = size_t(m) * 36;
    }
  }
  ::close(fds[0]);
  if (timedout || readerror || overrun) ::kill(pid, SIGKILL);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }

  char text[160];
  if (timedout) {
    std::snprintf(text, sizeof text, "the repair pass did not finish within %g s", seconds);
    error = text;
    return MESHREPAIR_EREPAIR;
  }
  if (readerror) {
    error = "the result of the repair pass could not be read";
    return MESHREPAIR_EREPAIR;
  }
  if (WIFSIGNALED(status)) {
    std::snprintf(text, sizeof text, "the repair pass stopped on signal %d (%s)", WTERMSIG(status),
                  strsignal(WTERMSIG(status)));
    error = text;
    return MESHREPAIR_EREPAIR;
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (code == CHILD_NOMEM) {
      error = "the repair pass ran out of memory";
      return MESHREPAIR_ENOMEM;
    }
    std::snprintf(text, sizeof text, "the repair pass failed with exit status %d", code);
    error = text;
    return MESHREPAIR_EREPAIR;
  }
  if (overrun || !gothead || have != want) {
    error = "the repair pass returned an incomplete mesh";
    return MESHREPAIR_EREPAIR;
  }
  xyz.swap(out);
  return 0;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-2.0-or-later
// STL reader. A file is ASCII when its vertex and facet lines count up (three vertices per
// facet); anything else is tried as binary, in the remembered byte order first and then in
// the four orders in turn. Every triangle brings its own three vertices: merging comes later.
#include "surface/readstl.h"

#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "control/messages.h"
#include "base/textio.h"

namespace wf {

namespace {

// Byte order words of the format lines.
const char *orderword(int order) {
  switch (order) {
    case 1: return "native";
    case 2: return "little_endian";
    case 3: return "big_endian";
    default: return "non-native";
  }
}

struct FileCloser {
  void operator()(std::FILE *f) const {
    if (f) std::fclose(f);
  }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

// The line with its leading blanks removed (a tab is not a blank here).
std::string_view leftadjusted(const std::string &line) {
  size_t b = line.find_first_not_of(' ');
  if (b == std::string::npos) return {};
  return std::string_view(line).substr(b);
}

// The repaired sibling: the text before the last dot (when the dot is not the first
// character), then "_ls_repair.stl".
std::string repairedname(const std::string &path) {
  size_t dot = path.find_last_of('.');
  std::string stem = (dot == std::string::npos || dot == 0) ? std::string() : path.substr(0, dot);
  return stem + "_ls_repair.stl";
}

// The ASCII attempt. status 0: rawvrt is complete. Otherwise the caller goes on with the
// binary attempts; the counts of the first pass stay in nrawvrt and ntri.
void readstlascii(RunState &rs, int &status) {
  const std::string &path = rs.stlpath;
  checkexists(path);
  LineReader in;
  checkopen(in.open(path), path);
  rs.nrawvrt = 0;
  rs.ntri = 0;

  // First pass: count the lines that matter.
  long long nv = 0, nt = 0;
  std::string line;
  for (;;) {
    int r = in.readline(line);
    if (r == IOSTAT_EOF) break;
    if (r != 0) checkread(r, path);
    std::string_view s = leftadjusted(line);
    if (s.substr(0, 6) == "vertex") {
      ++nv;
    } else if (s.substr(0, 12) == "facet normal") {
      ++nt;
    }
  }
  constexpr long long maxtri = std::numeric_limits<int32_t>::max() / 3;
  if (nt > maxtri) {
    // More facets than a surface can hold: this is no text file of ours.
    rs.ntri = std::numeric_limits<int32_t>::max();
    rs.nrawvrt = static_cast<int32_t>(std::min<long long>(nv, std::numeric_limits<int32_t>::max()));
    status = 1;
    return;
  }
  rs.nrawvrt = static_cast<int32_t>(std::min<long long>(nv, std::numeric_limits<int32_t>::max()));
  rs.ntri = static_cast<int32_t>(nt);
  if (!(nv == 3 * nt && nt >= 1 && nv >= 1)) {
    status = 1;
    return;
  }

  // Second pass: the coordinates, straight to double.
  allocate(rs.rawvrt, 3 * static_cast<size_t>(rs.nrawvrt), "readstlascii, rawvrt, 1");
  in.rewind();
  int32_t taken = 0;
  double *out = rs.rawvrt.data();
  while (taken < rs.nrawvrt) {
    int r = in.readline(line);
    if (r != 0) {
      status = r;
      return;
    }
    std::string_view s = leftadjusted(line);
    if (s.substr(0, 6) != "vertex") continue;
    std::string_view rest = s.substr(6);
    size_t pos = 0;
    for (int k = 0; k < 3; ++k) {
      int rr = readreal(rest, pos, out[3 * static_cast<size_t>(taken) + k]);
      if (rr != 0) {
        status = rr;
        return;
      }
    }
    ++taken;
  }
  in.close();
  status = 0;
}

inline uint32_t byteswap32(uint32_t v) { return __builtin_bswap32(v); }

// One binary attempt in one byte order. The file is opened and closed here.
void readstlbinary(RunState &rs, bool quiet, int order, int &status) {
  const std::string &path = rs.stlpath;
  if (!quiet) rs.rep.say(std::string("Reading in ") + orderword(order) + " format...");
  checkexists(path);
  errno = 0;
  FilePtr f(std::fopen(path.c_str(), "rb"));
  if (!f) checkopen(errno != 0 ? errno : IOSTAT_IOERR, path);
  auto readerror = [&]() { return std::ferror(f.get()) ? IOSTAT_IOERR : IOSTAT_EOF; };

  unsigned char head[84];
  if (std::fread(head, 1, 84, f.get()) != 84) {
    status = readerror();
    return;
  }
  uint32_t raw;
  std::memcpy(&raw, head + 80, 4);
  uint32_t ucount;
  if (order == 3) {
    ucount = (std::endian::native == std::endian::big) ? raw : byteswap32(raw);
  } else if (order == 2) {
    ucount = (std::endian::native == std::endian::little) ? raw : byteswap32(raw);
  } else if (order == 4) {
    // The count decoded by hand from its four bytes, little-endian.
    ucount = static_cast<uint32_t>(head[80]) + 256u * head[81] + 65536u * head[82] +
             16777216u * head[83];
  } else {
    ucount = raw;
  }
  const int32_t count = static_cast<int32_t>(ucount);
  rs.ntri = count;
  rs.nrawvrt = static_cast<int32_t>(3u * ucount);  // wraps as 32-bit arithmetic does
  if (count <= 0) {
    status = -1;
    return;
  }
  // A count that does not fit the file fails this order before anything is allocated.
  struct stat st {};
  const long long need = 84 + 50LL * count;
  if (fstat(fileno(f.get()), &st) != 0 || static_cast<long long>(st.st_size) < need) {
    status = IOSTAT_EOF;
    return;
  }

  // The triangle block is read in one operation into the storage of rawvrt (50 bytes per
  // triangle fit in the 72 bytes of its three corners) and then widened in place from the
  // last triangle to the first: the corners of triangle t land at 72t and above, beyond the
  // records of all earlier triangles, and its own record is taken before it is overwritten.
  const size_t n = static_cast<size_t>(count);
  if (order == 4) {
    try {
      std::vector<double> fresh(9 * n);
      rs.rawvrt.swap(fresh);
    } catch (const std::exception &) {
      status = IOSTAT_IOERR;
      return;
    }
  } else {
    allocate(rs.rawvrt, 9 * n, "readstlbinary, rawvrt, 1");
  }
  unsigned char *bytes = reinterpret_cast<unsigned char *>(rs.rawvrt.data());
  if (std::fread(bytes, 50, n, f.get()) != n) {
    status = readerror();
    release(rs.rawvrt);
    return;
  }
  f.reset();

  const bool swap = (order == 3 && std::endian::native == std::endian::little) ||
                    (order == 2 && std::endian::native == std::endian::big);
  double *out = rs.rawvrt.data();
  for (size_t t = n; t-- > 0;) {
    uint32_t w[9];
    std::memcpy(w, bytes + 50 * t + 12, 36);
    double v[9];
    for (int k = 0; k < 9; ++k) {
      uint32_t b = swap ? byteswap32(w[k]) : w[k];
      float x;
      std::memcpy(&x, &b, 4);
      v[k] = static_cast<double>(x);
    }
    std::memcpy(out + 9 * t, v, sizeof v);
  }
  status = 0;
}

// Per axis the extremes over the columns; a value that is not a number is passed over unless
// every value of the axis is one.
void boundingbox(RunState &rs) {
  const size_t n = static_cast<size_t>(rs.nrawvrt);
  const double *v = rs.rawvrt.data();
  for (int k = 0; k < 3; ++k) {
    double mn = std::numeric_limits<double>::infinity();
    double mx = -mn;
    bool any = false;
    for (size_t j = 0; j < n; ++j) {
      double x = v[3 * j + k];
      if (x != x) continue;
      any = true;
      if (x < mn) mn = x;
      if (x > mx) mx = x;
    }
    if (!any) mn = mx = std::numeric_limits<double>::quiet_NaN();
    rs.stlbbox.min[k] = mn;
    rs.stlbbox.max[k] = mx;
    rs.stlbbox.size[k] = mx - mn;
    rs.stlbbox.centre[k] = (mn + mx) * 0.5;
    rs.prerepairbbox.min[k] = mn;
    rs.prerepairbbox.max[k] = mx;
    rs.prerepairbbox.size[k] = mx - mn;
    rs.prerepairbbox.centre[k] = (mn + mx) * 0.5;
  }
}

void boxline(RunState &rs, int k, const char *text) {
  char buf[64];
  char *p = scifield(buf, rs.stlbbox.min[k], 14, 6);
  size_t len = std::strlen(text);
  std::memcpy(p, text, len);
  p += len;
  p = scifield(p, rs.stlbbox.max[k], 14, 6);
  rs.rep.raw(std::string_view(buf, static_cast<size_t>(p - buf)));
}

}  // namespace

void readstl(RunState &rs, bool quiet) {
  if (!quiet) rs.rep.say("Reading " + rs.stlpath);
  std::string repaired = repairedname(rs.stlpath);
  if (fileexists(repaired)) {
    rs.stlpath = repaired;
    rs.rep.say("Detected repaired STL.");
    rs.rep.say("Reading " + rs.stlpath + " instead...");
  }
  release(rs.stlvrt);
  release(rs.rawvrt);

  int status = 1;
  readstlascii(rs, status);
  bool ok = status == 0;
  if (ok) {
    if (!quiet) rs.rep.say("ASCII STL file");
  } else {
    // Whatever the text pass left behind is not a surface.
    release(rs.rawvrt);
    status = -1;
    if (rs.stlbyteorder != 0) readstlbinary(rs, quiet, rs.stlbyteorder, status);
    if (status != 0) {
      rs.stlbyteorder = 0;
      for (int order = 1; order <= 4; ++order) {
        rs.stlbyteorder = order;
        readstlbinary(rs, quiet, order, status);
        if (status == 0) break;
      }
    }
    ok = status == 0;
    if (!quiet) rs.rep.say("Binary STL file");
  }

  if (rs.nrawvrt < 1 || (!ok && rs.ntri >= 1)) {
    // No vertices, or a count that no byte order could read from the file.
    if (!quiet) rs.rep.post(1, 130);
    fatalsilent();
  }
  if (rs.ntri < 1) {
    if (!quiet) rs.rep.post(1, 131);
    fatalsilent();
  }

  boundingbox(rs);
  if (!quiet) {
    rs.rep.say("Bounding box:");
    boxline(rs, 0, " <= x <= ");
    boxline(rs, 1, " <= y <= ");
    boxline(rs, 2, " <= z <= ");
    rs.rep.blank();
    rs.rep.say("Number of vertices  = " + inttext(rs.nrawvrt, true));
    rs.rep.say("Number of triangles = " + inttext(rs.ntri, true));
    rs.rep.say("Finished reading " + rs.stlpath);
    rs.rep.blank();
  }
}

void readstlraw(RunState &rs, bool quiet) {
  readstl(rs, quiet);
  rs.nvrt = rs.nrawvrt;
  rs.stlvrt.swap(rs.rawvrt);
  release(rs.rawvrt);
}

}  // namespace wf

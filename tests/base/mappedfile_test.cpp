// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/mappedfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "testutil.h"

using wf::MappedFile;

namespace {

struct Opened {
  int fd;
  explicit Opened(const std::string &path, int flags = O_WRONLY | O_CREAT | O_TRUNC)
      : fd(::open(path.c_str(), flags, 0644)) {}
  ~Opened() {
    if (fd >= 0) ::close(fd);
  }
};

}  // namespace

// An empty file opened for writing only is mapped: it takes the size, starts as zeros, and keeps
// what was formatted into it once the mapping goes.
TEST(MappedFile, EmptyFileTakesTheBytesInPlace) {
  const std::string dir = wft::tempdir("mapped"), path = dir + "/out.bin";
  const Opened f(path);
  ASSERT_GE(f.fd, 0);
  std::string expect(10000, '\0');
  {
    MappedFile m(path, f.fd, expect.size());
    ASSERT_TRUE(m.mapped());
    EXPECT_EQ(std::string(m.data(), expect.size()), expect);
    for (size_t i = 0; i < expect.size(); i += 7) m.data()[i] = expect[i] = static_cast<char>('a' + i % 26);
  }
  EXPECT_EQ(wft::readfile(path), expect);
}

// Where the bytes cannot be written in place, nothing is mapped and the file is as it was, for
// the caller's own write: a file with contents, a path naming another file than the one open, a
// device, and nothing to write.
TEST(MappedFile, RefusesWhatItCannotWriteInPlace) {
  const std::string dir = wft::tempdir("mapped");
  wft::writefile(dir + "/full.txt", "kept");
  {
    const Opened f(dir + "/full.txt", O_WRONLY);
    ASSERT_GE(f.fd, 0);
    EXPECT_FALSE(MappedFile(dir + "/full.txt", f.fd, 100).mapped());
  }
  EXPECT_EQ(wft::readfile(dir + "/full.txt"), "kept");

  const Opened a(dir + "/a.bin"), b(dir + "/b.bin");
  ASSERT_TRUE(a.fd >= 0 && b.fd >= 0);
  EXPECT_FALSE(MappedFile(dir + "/b.bin", a.fd, 100).mapped());
  EXPECT_EQ(wft::readfile(dir + "/a.bin"), "");
  EXPECT_EQ(wft::readfile(dir + "/b.bin"), "");
  EXPECT_FALSE(MappedFile(dir + "/a.bin", a.fd, 0).mapped());

  const Opened null("/dev/null", O_WRONLY);
  ASSERT_GE(null.fd, 0);
  EXPECT_FALSE(MappedFile("/dev/null", null.fd, 100).mapped());
}

// SPDX-License-Identifier: GPL-3.0-or-later
#include "simresults/resultfile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <type_traits>

#include "base/fatal.h"

namespace wf {

// ---------------------------------------------------------------- RecordFile

RecordFile::~RecordFile() { close(); }

int RecordFile::open(const std::string &path) {
  close();
  errno = 0;
  f_ = std::fopen(path.c_str(), "rb");
  if (!f_) return errno ? errno : IOSTAT_IOERR;
  struct stat st {};
  if (fstat(fileno(f_), &st) != 0 || !S_ISREG(st.st_mode)) {
    close();
    return IOSTAT_IOERR;
  }
  size_ = static_cast<long long>(st.st_size);
  pos_ = 0;
  return 0;
}

void RecordFile::close() {
  if (f_) std::fclose(f_);
  f_ = nullptr;
  size_ = pos_ = 0;
}

int RecordFile::read(void *data, size_t len) {
  if (!f_) return IOSTAT_IOERR;
  if (remaining() < 4) return IOSTAT_EOF;
  int32_t lead = 0;
  if (std::fread(&lead, 4, 1, f_) != 1) return std::ferror(f_) ? IOSTAT_IOERR : IOSTAT_EOF;
  pos_ += 4;
  const long long need = static_cast<long long>(len);
  if (lead < 0 || lead < need) return IOSTAT_IOERR;
  if (need > remaining()) return IOSTAT_EOF;
  if (data) {
    if (len > 0 && std::fread(data, 1, len, f_) != len) return std::ferror(f_) ? IOSTAT_IOERR : IOSTAT_EOF;
    pos_ += need;
  }
  // The rest of the record and the trailing length, as far as the file goes.
  const long long rest = std::min<long long>((data ? lead - need : lead) + 4LL, remaining());
  if (fseeko(f_, static_cast<off_t>(rest), SEEK_CUR) != 0) return IOSTAT_IOERR;
  pos_ += rest;
  return 0;
}

// ---------------------------------------------------------------- ResultFile

int ResultFile::open(const std::string &path, bool asbinary) {
  binary = asbinary;
  struct stat st {};
  filesize = stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : 0;
  return binary ? rec.open(path) : txt.open(path);
}

void ResultFile::close() {
  rec.close();
  txt.close();
}

int ResultFile::text80(std::string &text) {
  if (binary) {
    char buf[80];
    int st = rec.read(buf, sizeof buf);
    if (st != 0) return st;
    text.assign(buf, sizeof buf);
    for (char &c : text)
      if (c == '\0') c = ' ';
    return 0;
  }
  int st = txt.readline(text);
  if (st != 0) return st;
  text.resize(80, ' ');
  return 0;
}

int ResultFile::int1(int32_t &value) {
  if (binary) return rec.read(&value, sizeof value);
  return readintline(txt, value);
}

namespace {

// n free-form values from the lines of a text file: blank lines are passed over, the values of
// one read may span lines, and what follows the last one on its line is dropped. Without keep,
// every value goes to out[0].
template <class T>
int readtextvalues(LineReader &in, T *out, size_t n, bool keep = true) {
  std::string line;
  size_t k = 0;
  while (k < n) {
    int st = in.readline(line);
    if (st != 0) return st;
    size_t pos = 0;
    while (k < n) {
      int rd = 0;
      T &slot = out[keep ? k : 0];
      if constexpr (std::is_same_v<T, int32_t>)
        rd = readint(line, pos, slot);
      else
        rd = readreal(line, pos, slot);
      if (rd == IOSTAT_EOF) break;  // the line is used up
      if (rd != 0) return rd;
      ++k;
    }
  }
  return 0;
}

}  // namespace

int ResultFile::ints(int32_t *out, size_t n) {
  if (binary) return rec.read(out, n * sizeof(int32_t));
  return readtextvalues(txt, out, n);
}

int ResultFile::floats(float *out, size_t n) {
  if (binary) return rec.read(out, n * sizeof(float));
  return readtextvalues(txt, out, n);
}

std::unique_ptr<float[]> allocatework(size_t n, const char *label) {
  try {
    return std::unique_ptr<float[]>(new float[n > 0 ? n : 1]);
  } catch (const std::bad_alloc &) {
    checkalloc(1, label);
  }
  return nullptr;
}

int ResultFile::skipints(uint64_t n) {
  if (binary) return rec.read(nullptr, n * sizeof(int32_t));
  int32_t sink = 0;
  return readtextvalues(txt, &sink, n, false);
}

int ResultFile::skipfloats(uint64_t n) {
  if (binary) return rec.read(nullptr, n * sizeof(float));
  float sink = 0;
  return readtextvalues(txt, &sink, n, false);
}

bool ResultFile::fits(uint64_t nvalues, uint64_t nrecords) const {
  if (binary) {
    const uint64_t need = nvalues * 4 + nrecords * 8;
    return rec.remaining() >= 0 && need <= static_cast<uint64_t>(rec.remaining());
  }
  // Each value takes at least one character and a separator from the next.
  const uint64_t need = nvalues > 0 ? 2 * nvalues - 1 : 0;
  return need <= static_cast<uint64_t>(filesize);
}

}  // namespace wf

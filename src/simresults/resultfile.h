// SPDX-License-Identifier: GPL-3.0-or-later
// The two forms of the solver's result files behind one reader: sequential binary records (a
// 4-byte length before and after every record) or free-form text. Every read returns 0 or an
// I/O status for checkread: IOSTAT_EOF when the file ends before what the read needs,
// IOSTAT_IOERR for a record shorter than the read (or of negative length), IOSTAT_BADVALUE for
// text that does not read as a number. A sequential read takes what it needs of a record and
// passes over the rest with the trailing length, which it does not compare with the leading one.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "base/textio.h"

namespace wf {

// Sequential binary records of one file.
class RecordFile {
 public:
  RecordFile() = default;
  ~RecordFile();
  RecordFile(const RecordFile &) = delete;
  RecordFile &operator=(const RecordFile &) = delete;
  int open(const std::string &path);  // 0 or an error number
  void close();
  bool isopen() const { return f_ != nullptr; }
  long long size() const { return size_; }
  long long remaining() const { return size_ - pos_; }
  // One record: its first len bytes into data (null: passed over), the rest of it passed over.
  int read(void *data, size_t len);

 private:
  std::FILE *f_ = nullptr;
  long long size_ = 0, pos_ = 0;
};

// A geometry or variable file opened in either form.
class ResultFile {
 public:
  bool binary = false;
  RecordFile rec;
  LineReader txt;
  long long filesize = 0;

  // Opens in the given form; 0 or an error number.
  int open(const std::string &path, bool asbinary);
  void close();
  // An 80-character text item, blank-padded.
  int text80(std::string &text);
  // One integer item (one record, or one free-form value).
  int int1(int32_t &value);
  // n values of one item (one record of exactly n values, or n free-form values over as many
  // lines as they take, the rest of the last line dropped).
  int ints(int32_t *out, size_t n);
  int floats(float *out, size_t n);
  // Whether n more values in nrecords records can still stand in the file. Checked before a
  // count read from the file is used to allocate.
  bool fits(uint64_t nvalues, uint64_t nrecords) const;
  // The reads of n values (one record, or n free-form values), with nothing kept: where a count
  // does not fit, these give the status the reads would have met, without the memory.
  int skipints(uint64_t n);
  int skipfloats(uint64_t n);
};

// A single-precision work block of n values, left uninitialised (every value is read into it
// before use); a failed allocation goes to checkalloc with the label.
std::unique_ptr<float[]> allocatework(size_t n, const char *label);

}  // namespace wf

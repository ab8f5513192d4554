// SPDX-License-Identifier: GPL-3.0-or-later
// Text I/O in one place: a buffered line reader with one line of step-back, free-form token
// reading (tokens end at a blank, comma or slash; quotes enclose), and the number forms of the
// console and the text outputs. Statuses are those of base/fatal.h (0, IOSTAT_*, or errno).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "base/fatal.h"

namespace wf {

// Reads a text file line by line. Lines lose their line end ("\n" or "\r\n") and are cut at
// maxlen characters. readline returns 0, IOSTAT_EOF at the end, or IOSTAT_IOERR.
// stepback() makes the next readline return the last line again (one level).
class LineReader {
 public:
  LineReader() = default;
  ~LineReader();
  LineReader(const LineReader &) = delete;
  LineReader &operator=(const LineReader &) = delete;
  int open(const std::string &path);  // 0 or an error number
  bool isopen() const { return f_ != nullptr; }
  void close();
  int readline(std::string &line);
  void stepback();
  void rewind();
  long long lineno() const { return lineno_; }
  size_t maxlen = 8192;

 private:
  bool fill();
  std::FILE *f_ = nullptr;
  std::string buf_;
  size_t pos_ = 0, end_ = 0;
  bool eof_ = false;
  std::string last_;
  bool haslast_ = false, replay_ = false;
  long long lineno_ = 0;
};

// Next free-form token of text from pos on. Leading blanks (and one separating comma) are
// passed over; a token in double or single quotes may hold blanks, commas and slashes.
// Returns false when the text has no further token.
bool nexttoken(std::string_view text, size_t &pos, std::string &token);
// Free-form reads from a text (an internal record): 0, IOSTAT_EOF when no token is left,
// IOSTAT_BADVALUE when the token is not a number of the type.
int readint(std::string_view text, size_t &pos, int32_t &value);
int readreal(std::string_view text, size_t &pos, double &value);
int readreal(std::string_view text, size_t &pos, float &value);
// Free-form read of one value from a file: blank lines are passed over as a list-directed read
// does; the rest of the line that holds the value is dropped. Returns 0 or an IOSTAT value.
int readintline(LineReader &in, int32_t &value);
int readrealline(LineReader &in, double &value);
// Parsing of a whole token.
bool parseint(std::string_view token, int32_t &value);
bool parsereal(std::string_view token, double &value);

// Shortest decimal text that reads back to the same value ("-1", "0.001", "1e-05").
std::string numtext(double value);
std::string numtext(float value);
// Scientific field: right-justified in width, one digit before the point, `decimals` after,
// upper-case exponent with sign and two digits ("  1.234560E+01"). Writes exactly `width`
// characters to out and returns out + width. Three-digit exponents drop the E, as the field
// form does ("1.234560+100").
char *scifield(char *out, double value, int width = 14, int decimals = 6);
std::string scitext(double value, int width = 14, int decimals = 6);

}  // namespace wf

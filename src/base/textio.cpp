// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/textio.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "base/fatal.h"

namespace wf {

// ---------------------------------------------------------------- LineReader

LineReader::~LineReader() { close(); }

int LineReader::open(const std::string &path) {
  close();
  f_ = std::fopen(path.c_str(), "rb");
  if (!f_) return errno ? errno : IOSTAT_IOERR;
  buf_.resize(1 << 16);
  pos_ = end_ = 0;
  eof_ = false;
  haslast_ = replay_ = false;
  lineno_ = 0;
  return 0;
}

void LineReader::close() {
  if (f_) std::fclose(f_);
  f_ = nullptr;
}

bool LineReader::fill() {
  if (eof_ || !f_) return false;
  end_ = std::fread(buf_.data(), 1, buf_.size(), f_);
  pos_ = 0;
  if (end_ == 0) eof_ = true;
  return end_ > 0;
}

int LineReader::readline(std::string &line) {
  if (replay_) {
    replay_ = false;
    line = last_;
    ++lineno_;
    return 0;
  }
  if (!f_) return IOSTAT_IOERR;
  std::string out;
  bool any = false;
  for (;;) {
    if (pos_ >= end_ && !fill()) {
      if (std::ferror(f_)) return IOSTAT_IOERR;
      break;
    }
    any = true;
    const char *start = buf_.data() + pos_;
    const void *nl = std::memchr(start, '\n', end_ - pos_);
    if (nl) {
      size_t len = static_cast<const char *>(nl) - start;
      if (out.size() < maxlen) out.append(start, std::min(len, maxlen - out.size() + 1));
      pos_ += len + 1;
      goto done;
    }
    if (out.size() < maxlen) out.append(start, std::min(end_ - pos_, maxlen - out.size() + 1));
    pos_ = end_;
  }
  if (!any) {
    // At the end: the caller's text is left as it was, and a step back reads the end again.
    haslast_ = false;
    return IOSTAT_EOF;
  }
done:
  if (!out.empty() && out.back() == '\r') out.pop_back();
  if (out.size() > maxlen) out.resize(maxlen);
  line = out;
  last_ = std::move(out);
  haslast_ = true;
  ++lineno_;
  return 0;
}

void LineReader::stepback() {
  if (haslast_) {
    replay_ = true;
    --lineno_;
  }
}

void LineReader::rewind() {
  if (!f_) return;
  std::rewind(f_);
  pos_ = end_ = 0;
  eof_ = false;
  haslast_ = replay_ = false;
  lineno_ = 0;
}

// ---------------------------------------------------------------- tokens

namespace {
inline bool isblankc(char c) { return c == ' ' || c == '\t'; }
}  // namespace

bool nexttoken(std::string_view text, size_t &pos, std::string &token) {
  size_t n = text.size();
  while (pos < n && isblankc(text[pos])) ++pos;
  if (pos < n && text[pos] == ',') {
    ++pos;
    while (pos < n && isblankc(text[pos])) ++pos;
  }
  if (pos >= n || text[pos] == '/') return false;
  token.clear();
  char q = text[pos];
  if (q == '"' || q == '\'') {
    ++pos;
    while (pos < n) {
      if (text[pos] == q) {
        if (pos + 1 < n && text[pos + 1] == q) {  // a doubled quote stands for itself
          token.push_back(q);
          pos += 2;
          continue;
        }
        ++pos;
        break;
      }
      token.push_back(text[pos++]);
    }
  } else {
    while (pos < n && !isblankc(text[pos]) && text[pos] != ',' && text[pos] != '/') token.push_back(text[pos++]);
  }
  // A separating comma behind the token belongs to it.
  size_t p = pos;
  while (p < n && isblankc(text[p])) ++p;
  if (p < n && text[p] == ',') pos = p + 1;
  return true;
}

bool parseint(std::string_view t, int32_t &value) {
  if (!t.empty() && t[0] == '+') t.remove_prefix(1);
  if (t.empty()) return false;
  int32_t v = 0;
  auto r = std::from_chars(t.data(), t.data() + t.size(), v);
  if (r.ec != std::errc() || r.ptr != t.data() + t.size()) return false;
  value = v;
  return true;
}

bool parsereal(std::string_view t, double &value) {
  if (!t.empty() && t[0] == '+') t.remove_prefix(1);
  if (t.empty() || t.size() > 128) return false;
  char buf[130];
  size_t n = 0;
  for (char c : t) buf[n++] = (c == 'd' || c == 'D') ? 'e' : c;
  // A Fortran-style exponent without its letter ("1.5+3") is accepted as well.
  for (size_t i = 1; i + 1 < n; ++i) {
    if ((buf[i] == '+' || buf[i] == '-') && std::isdigit(static_cast<unsigned char>(buf[i - 1])) &&
        std::memchr(buf, 'e', i) == nullptr && std::memchr(buf, 'E', i) == nullptr) {
      std::memmove(buf + i + 1, buf + i, n - i);
      buf[i] = 'e';
      ++n;
      break;
    }
  }
  double v = 0;
  auto r = std::from_chars(buf, buf + n, v);
  if (r.ec == std::errc::result_out_of_range) {
    v = std::strtod(std::string(buf, n).c_str(), nullptr);
  } else if (r.ec != std::errc()) {
    return false;
  }
  if (r.ptr != buf + n) return false;
  value = v;
  return true;
}

int readint(std::string_view text, size_t &pos, int32_t &value) {
  std::string tok;
  if (!nexttoken(text, pos, tok)) return IOSTAT_EOF;
  return parseint(tok, value) ? 0 : IOSTAT_BADVALUE;
}

int readreal(std::string_view text, size_t &pos, double &value) {
  std::string tok;
  if (!nexttoken(text, pos, tok)) return IOSTAT_EOF;
  return parsereal(tok, value) ? 0 : IOSTAT_BADVALUE;
}

int readreal(std::string_view text, size_t &pos, float &value) {
  double d = 0;
  int st = readreal(text, pos, d);
  if (st == 0) value = static_cast<float>(d);
  return st;
}

namespace {
template <class T, class F>
int readvalueline(LineReader &in, T &value, F parse) {
  std::string line, tok;
  for (;;) {
    int st = in.readline(line);
    if (st != 0) return st;
    size_t pos = 0;
    if (nexttoken(line, pos, tok)) return parse(tok, value) ? 0 : IOSTAT_BADVALUE;
  }
}
}  // namespace

int readintline(LineReader &in, int32_t &value) {
  return readvalueline(in, value, [](std::string_view t, int32_t &v) { return parseint(t, v); });
}

int readrealline(LineReader &in, double &value) {
  return readvalueline(in, value, [](std::string_view t, double &v) { return parsereal(t, v); });
}

// ---------------------------------------------------------------- number forms

std::string numtext(double value) {
  char buf[64];
  auto r = std::to_chars(buf, buf + sizeof buf, value);
  return std::string(buf, r.ptr);
}

std::string numtext(float value) {
  char buf[64];
  auto r = std::to_chars(buf, buf + sizeof buf, value);
  return std::string(buf, r.ptr);
}

char *scifield(char *out, double value, int width, int decimals) {
  char tmp[64];
  size_t len = 0;
  if (std::isnan(value)) {
    std::memcpy(tmp, "NaN", 3);
    len = 3;
  } else if (std::isinf(value)) {
    const char *s = value > 0 ? "Infinity" : "-Infinity";
    len = std::strlen(s);
    std::memcpy(tmp, s, len);
  } else {
    char raw[64];
    auto r = std::to_chars(raw, raw + sizeof raw, value, std::chars_format::scientific, decimals);
    char *e = static_cast<char *>(std::memchr(raw, 'e', r.ptr - raw));
    size_t mant = e - raw;
    std::memcpy(tmp, raw, mant);
    len = mant;
    char sign = e[1];
    size_t ndig = r.ptr - (e + 2);
    if (ndig <= 2) {
      tmp[len++] = 'E';
      tmp[len++] = sign;
      if (ndig == 1) tmp[len++] = '0';
      std::memcpy(tmp + len, e + 2, ndig);
      len += ndig;
    } else {
      tmp[len++] = sign;
      std::memcpy(tmp + len, e + 2, ndig);
      len += ndig;
    }
  }
  size_t w = static_cast<size_t>(width);
  if (len > w) {
    std::memset(out, '*', w);
  } else {
    std::memset(out, ' ', w - len);
    std::memcpy(out + (w - len), tmp, len);
  }
  return out + w;
}

std::string scitext(double value, int width, int decimals) {
  std::string s(static_cast<size_t>(width), ' ');
  scifield(s.data(), value, width, decimals);
  return s;
}

}  // namespace wf

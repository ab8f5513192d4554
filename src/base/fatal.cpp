// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/fatal.h"

#include "base/text.h"

namespace wf {

void fatal(int code, std::vector<std::string> vars) { throw Fatal(code, std::move(vars)); }

void fatalsilent() { throw Fatal(); }

void iolayerfailure(const std::string &text) {
  Fatal f;
  f.iolayer = text;
  throw f;
}

void checkread(int status, const std::string &file) {
  if (status == 0) return;
  if (status == IOSTAT_EOR) fatal(27, {file});
  if (status == IOSTAT_EOF) fatal(28, {file});
  fatal(29, {text256(file), std::to_string(status)});
}

void checkexists(const std::string &file, const Folder &in) {
  if (!fileexists(in.at(file))) fatal(30, {file, file});
}

void checkopen(int status, const std::string &file) {
  if (status != 0) fatal(31, {text256(file), std::to_string(status), text256(file)});
}

void checkalloc(int status, const std::string &label) {
  if (status != 0) fatal(32, {label});
}

void checkarg(int status, const std::string &value) {
  if (status != 0) fatal(status == -1 ? 33 : 34, {value});
}

void checkenv(int status, const std::string &name, const std::string &value) {
  if (status == 0) return;
  if (status == -1) fatal(35, {text256(name), text256(value)});
  if (status == 1) fatal(36, {name});
  if (status == 2) fatal(37, {name});
  fatal(38, {text256(name), text256(value), std::to_string(status)});
}

}  // namespace wf

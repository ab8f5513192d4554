// SPDX-License-Identifier: GPL-2.0-or-later
#include "outputs/convert3mf.h"

#include <Model/COM/NMR_DLLInterfaces.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <string>

#include "control/messages.h"
#include "outputs/lib3mfversion.h"
#include "outputs/outcommon.h"

namespace wf {

int lib3mfinterfaceversion(uint32_t *major, uint32_t *minor, uint32_t *micro) {
  DWORD a = 0, b = 0, c = 0;
  const int status = NMR::lib3mf_getinterfaceversion(&a, &b, &c);
  *major = a, *minor = b, *micro = c;
  return status;
}

lib3mfversionfn lib3mfversionquery = lib3mfinterfaceversion;

namespace {

void line(RunState &rs, const std::string &text) {
  rs.rep.raw(text);
}

// A lib3MF status in hexadecimal; from here on the console prints its integers that way.
std::string hexstatus(RunState &rs, int status) { return rs.rep.hexstatus(status); }

uint64_t tickcount() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

}  // namespace

void convert3mfstep(RunState &rs) {
  if (!rs.settings.o3mfflag) return;
  // The path is passed as it stands, blanks and all.
  const std::string &input = rs.outstlpath;
  const size_t p = lastdot(input);
  const std::string output = input.substr(0, p) + "3mf";
  const int status = convertto3mf(rs, input.c_str(), output.c_str());
  if (status != 0) {
    rs.rep.say("Warning:  3MF conversion was not successful.");
    rs.rep.blank();
  }
}

int convertto3mf(RunState &rs, const char *inputpath, const char *outputpath) {
  const std::string rule(66, '-');
  line(rs, rule);
  line(rs, "3MF Model Converter");
  line(rs, rule);

  uint32_t major = 0, minor = 0, micro = 0;
  int status = lib3mfversionquery(&major, &minor, &micro);
  if (status != 0) {
    line(rs, "could not get 3MF Library version: " + hexstatus(rs, status));
    return -1;
  }
  if (major != 1) {
    line(rs, "invalid 3MF Library major version: " + rs.rep.integer(1));
    return -2;
  }
  if (minor < 5) {
    line(rs, "invalid 3MF Library minor version: " + rs.rep.integer(5));
    return -3;
  }

  const std::string input(inputpath);
  const size_t dot = input.find_last_of('.');
  std::string extension = dot == std::string::npos ? std::string() : input.substr(dot);
  for (char &c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const char *readername = nullptr;
  if (extension == ".stl") readername = "stl";
  else if (extension == ".3mf") readername = "3mf";
  else {
    line(rs, "unknown input file extension:" + extension);
    return -5;
  }

  NMR::PLib3MFModel *model = nullptr;
  status = NMR::lib3mf_createmodel(&model);
  if (status != 0) {
    line(rs, "could not create model: " + hexstatus(rs, status));
    return -6;
  }
  NMR::PLib3MFModelReader *reader = nullptr;
  status = NMR::lib3mf_model_queryreader(model, readername, &reader);
  if (status != 0) {
    line(rs, "could not create model reader: " + hexstatus(rs, status));
    NMR::lib3mf_release(model);
    return -7;
  }
  line(rs, "reading " + input + "...");
  uint64_t start = tickcount();
  status = NMR::lib3mf_reader_readfromfileutf8(reader, inputpath);
  if (status != 0) {
    line(rs, "could not parse file: " + hexstatus(rs, status));
    NMR::lib3mf_release(reader);
    NMR::lib3mf_release(model);
    return -8;
  }
  line(rs, "elapsed time: " + rs.rep.integer(static_cast<long long>(tickcount() - start)) + "ms");
  NMR::lib3mf_release(reader);

  NMR::PLib3MFModelWriter *writer = nullptr;
  status = NMR::lib3mf_model_querywriter(model, "3mf", &writer);
  if (status != 0) {
    line(rs, "could not create model reader: " + hexstatus(rs, status));
    NMR::lib3mf_release(model);
    return -9;
  }
  line(rs, "writing " + std::string(outputpath) + "...");
  start = tickcount();
  status = NMR::lib3mf_writer_writetofileutf8(writer, outputpath);
  if (status != 0) {
    line(rs, "could not write file: " + hexstatus(rs, status));
    // The reader was released after the read; lib3MF frees the object there, and a second
    // release would touch freed memory, so it is not repeated here.
    NMR::lib3mf_release(model);
    return -10;
  }
  line(rs, "elapsed time: " + rs.rep.integer(static_cast<long long>(tickcount() - start)) + "ms");
  line(rs, "done converting 3MF");
  NMR::lib3mf_release(model);
  return 0;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/convert3mf.h"

#include <Model/COM/NMR_DLLInterfaces.h>

#include <cctype>
#include <chrono>
#include <cstdint>
#include <string>

#include "base/text.h"
#include "outputs/outcommon.h"

namespace wf {

namespace {

void line(Reporter &rep, const std::string &text) { rep.raw(text); }

// A lib3MF status in hexadecimal; from here on the console prints its integers that way.
std::string hexstatus(Reporter &rep, int status) { return rep.hexstatus(status); }

uint64_t tickcount() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

}  // namespace

std::string plain3mfname(const std::string &outstlpath) { return outstlpath.substr(0, lastdot(outstlpath)) + "3mf"; }

int convertto3mf(Reporter &rep, const char *inputpath, const char *outputpath, const Folder &in) {
  const std::string rule(66, '-');
  line(rep, rule);
  line(rep, "3MF Model Converter");
  line(rep, rule);

  DWORD major = 0, minor = 0, micro = 0;
  int status = NMR::lib3mf_getinterfaceversion(&major, &minor, &micro);
  if (status != 0) {
    line(rep, "could not get 3MF Library version: " + hexstatus(rep, status));
    return -1;
  }
  if (major != 1) {
    line(rep, "invalid 3MF Library major version: " + rep.integer(1));
    return -2;
  }
  if (minor < 5) {
    line(rep, "invalid 3MF Library minor version: " + rep.integer(5));
    return -3;
  }

  const std::string input(inputpath);
  const size_t dot = input.find_last_of('.');
  std::string extension = dot == std::string::npos ? std::string() : input.substr(dot);
  for (char &c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  const char *readername = nullptr;
  if (extension == ".stl")
    readername = "stl";
  else if (extension == ".3mf")
    readername = "3mf";
  else {
    line(rep, "unknown input file extension:" + extension);
    return -5;
  }

  NMR::PLib3MFModel *model = nullptr;
  status = NMR::lib3mf_createmodel(&model);
  if (status != 0) {
    line(rep, "could not create model: " + hexstatus(rep, status));
    return -6;
  }
  NMR::PLib3MFModelReader *reader = nullptr;
  status = NMR::lib3mf_model_queryreader(model, readername, &reader);
  if (status != 0) {
    line(rep, "could not create model reader: " + hexstatus(rep, status));
    NMR::lib3mf_release(model);
    return -7;
  }
  line(rep, "reading " + input + "...");
  uint64_t start = tickcount();
  status = NMR::lib3mf_reader_readfromfileutf8(reader, in.at(inputpath).c_str());
  if (status != 0) {
    line(rep, "could not parse file: " + hexstatus(rep, status));
    NMR::lib3mf_release(reader);
    NMR::lib3mf_release(model);
    return -8;
  }
  line(rep, "elapsed time: " + rep.integer(static_cast<long long>(tickcount() - start)) + "ms");
  NMR::lib3mf_release(reader);

  NMR::PLib3MFModelWriter *writer = nullptr;
  status = NMR::lib3mf_model_querywriter(model, "3mf", &writer);
  if (status != 0) {
    // Kept deliberately: a writer that cannot be had is reported with the reader's words.
    // [not pinned: lib3MF gives its writer whenever it gives a model]
    line(rep, "could not create model reader: " + hexstatus(rep, status));
    NMR::lib3mf_release(model);
    return -9;
  }
  line(rep, "writing " + std::string(outputpath) + "...");
  start = tickcount();
  status = NMR::lib3mf_writer_writetofileutf8(writer, in.at(outputpath).c_str());
  if (status != 0) {
    line(rep, "could not write file: " + hexstatus(rep, status));
    // The reader was released after the read; lib3MF frees the object there, and a second
    // release would touch freed memory, so it is not repeated here.
    NMR::lib3mf_release(model);
    return -10;
  }
  line(rep, "elapsed time: " + rep.integer(static_cast<long long>(tickcount() - start)) + "ms");
  line(rep, "done converting 3MF");
  NMR::lib3mf_release(model);
  return 0;
}

}  // namespace wf

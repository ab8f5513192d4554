// SPDX-License-Identifier: GPL-3.0-or-later
// The zip of the 3MF package through minizip, and the zip64 test of a member.
#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "base/text.h"
#include "outputs/deflate.h"
#include "outputs/zippackage.h"

namespace wf {

namespace {

constexpr size_t transfersize = 16384;

// Tells the caller a note, when it listens.
void tell(const ZipNoteFn &onnote, ZipEvent event, const std::string &name = {}, long long number = 0) {
  if (onnote) onnote(ZipNote{event, name, number});
}

// Last write time of a file as the packed DOS date (high word) and time (low word), local
// time; 0 when the file is not found or its time has no DOS form.
unsigned long dosdatetime(const char *path) {
  struct stat st;
  if (stat(path, &st) != 0) return 0;
  std::time_t mtime = st.st_mtime;
  std::tm local{};
  if (localtime_r(&mtime, &local) == nullptr) return 0;
  const int year = local.tm_year + 1900;
  if (year < 1980 || year > 2107) return 0;
  const unsigned long date = (static_cast<unsigned long>(year - 1980) << 9) |
                             (static_cast<unsigned long>(local.tm_mon + 1) << 5) |
                             static_cast<unsigned long>(local.tm_mday);
  const unsigned long time = (static_cast<unsigned long>(local.tm_hour) << 11) |
                             (static_cast<unsigned long>(local.tm_min) << 5) |
                             static_cast<unsigned long>(local.tm_sec / 2);
  return (date << 16) | time;
}

}  // namespace

int iszip64file(const char *path, std::optional<long long> *bytes, const Folder &in) {
  if (bytes != nullptr) bytes->reset();
  std::FILE *f = std::fopen(in.at(path).c_str(), "rb");
  if (f == nullptr) return 0;
  long long size = 0;
  if (fseeko(f, 0, SEEK_END) == 0) size = static_cast<long long>(ftello(f));
  std::fclose(f);
  if (bytes != nullptr) *bytes = size;
  return size >= 0xffffffffLL ? 1 : 0;
}

int zippackage(const char *zipname, const char *folder, char *filelist, const DeflatedMember *given,
               const ZipNoteFn &onnote, const Folder &in) {
  tell(onnote, ZipEvent::starting);
  // The list is split in place at its line feeds.
  std::vector<char *> members;
  for (char *p = filelist; *p != '\0';) {
    char *lf = std::strchr(p, '\n');
    if (lf != nullptr) *lf = '\0';
    if (*p != '\0') members.push_back(p);
    if (lf == nullptr) break;
    p = lf + 1;
  }

  char *buf = static_cast<char *>(std::malloc(transfersize));
  if (buf == nullptr) {
    tell(onnote, ZipEvent::nobuffer);
    return -104;
  }

  int status = 0;
  zipFile zf = zipOpen(in.at(zipname).c_str(), APPEND_STATUS_CREATE);
  if (zf != nullptr) {
    tell(onnote, ZipEvent::created, zipname);
  } else {
    tell(onnote, ZipEvent::notcreated, zipname);
    status = -1;
  }

  for (size_t m = 0; zf != nullptr && m < members.size() && status == 0; ++m) {
    const std::string source = std::string(folder) + "/" + members[m];
    zip_fileinfo info;
    std::memset(&info, 0, sizeof info);
    info.dosDate = dosdatetime(in.at(source).c_str());
    std::optional<long long> bytes;
    const int zip64 = iszip64file(source.c_str(), &bytes, in);
    if (bytes) tell(onnote, ZipEvent::membersize, source, *bytes);
    const char *entry = members[m];
    while (*entry == '\\' || *entry == '/') ++entry;

    // The member is deflated here (on all threads), unless that was done beforehand, and handed
    // to minizip as raw data, with its CRC and size given at the close.
    int err =
        zipOpenNewFileInZip3_64(zf, entry, &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, Z_DEFAULT_COMPRESSION, 1,
                                -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, zip64);
    std::FILE *member = nullptr;
    if (err != ZIP_OK) {
      tell(onnote, ZipEvent::notopenedinzip, source, err);
    } else {
      // A member deflated beforehand is not read, but its file is opened all the same: one
      // that cannot be read fails here as every member does.
      member = std::fopen(in.at(source).c_str(), "rb");
      if (member == nullptr) {
        err = ZIP_ERRNO;
        tell(onnote, ZipEvent::notopened, source);
      }
    }
    const bool prepared = given != nullptr && given->packed != nullptr && given->name == members[m];
    Deflated own;
    if (err == ZIP_OK && !prepared) {
      // The member in memory, read a transfer buffer at a time.
      std::vector<unsigned char> content;
      size_t got = 0;
      do {
        got = std::fread(buf, 1, transfersize, member);
        if (got < transfersize && std::feof(member) == 0) {
          tell(onnote, ZipEvent::notread, source);
          err = ZIP_ERRNO;
        }
        try {
          content.insert(content.end(), buf, buf + got);
        } catch (const std::bad_alloc &) {
          err = ZIP_INTERNALERROR;
        }
      } while (err == ZIP_OK && got > 0);
      if (err == ZIP_OK && !deflateraw(content.data(), content.size(), own)) err = ZIP_INTERNALERROR;
      if (err == ZIP_INTERNALERROR) tell(onnote, ZipEvent::notwritten, source, err);
    }
    const Deflated &packed = prepared ? *given->packed : own;
    if (err == ZIP_OK) {
      constexpr size_t piece = size_t{1} << 24;
      for (size_t at = 0; at < packed.data.size() && err == ZIP_OK; at += piece) {
        const size_t len = std::min(piece, packed.data.size() - at);
        err = zipWriteInFileInZip(zf, packed.data.data() + at, static_cast<unsigned>(len));
        if (err < 0) tell(onnote, ZipEvent::notwritten, source, err);
      }
    }
    if (member != nullptr) std::fclose(member);
    if (err < 0) {
      status = ZIP_ERRNO;
    } else {
      status = zipCloseFileInZipRaw64(zf, packed.size, packed.crc);
      if (status != ZIP_OK) tell(onnote, ZipEvent::notclosedinzip, source, status);
    }
  }
  std::free(buf);
  // A failed package is left as it stands, not closed.
  if (status != 0) return status;

  const int err = zipClose(zf, nullptr);
  if (err == ZIP_OK) {
    tell(onnote, ZipEvent::done);
    return 0;
  }
  tell(onnote, ZipEvent::notclosed, zipname, err);
  return err;
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/deflate.h"

#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>
#include <omp.h>

#include <algorithm>
#include <memory>
#include <new>

namespace wf {

namespace {

constexpr size_t dictionary = 32768;

// Compresses input[begin, end) as one piece of the stream into out; final for the last piece.
bool compresschunk(const unsigned char *input, size_t begin, size_t end, bool final,
                   std::vector<unsigned char> &levelbuf, std::vector<unsigned char> &out) {
  isal_zstream s;
  isal_deflate_init(&s);
  s.level = 3;
  s.level_buf = levelbuf.data();
  s.level_buf_size = static_cast<uint32_t>(levelbuf.size());
  if (begin > 0) {
    const size_t from = begin > dictionary ? begin - dictionary : 0;
    if (isal_deflate_set_dict(&s, const_cast<unsigned char *>(input + from),
                              static_cast<uint32_t>(begin - from)) != COMP_OK)
      return false;
  }
  // A bound that deflate never passes: stored blocks cost 5 bytes per 64 KiB, plus the ends.
  const size_t len = end - begin;
  out.resize(len + len / 1024 + 1024);
  s.next_in = const_cast<unsigned char *>(input + begin);
  s.avail_in = static_cast<uint32_t>(len);
  s.next_out = out.data();
  s.avail_out = static_cast<uint32_t>(out.size());
  s.end_of_stream = final ? 1 : 0;
  // A piece that is not the last ends with a sync flush: on a byte boundary, no final block.
  s.flush = final ? NO_FLUSH : SYNC_FLUSH;
  if (isal_deflate(&s) != COMP_OK || s.avail_in != 0) return false;
  if (final && s.internal_state.state != ZSTATE_END) return false;
  out.resize(out.size() - s.avail_out);
  return true;
}

}  // namespace

bool deflateraw(const unsigned char *input, size_t n, Deflated &out, int threads) {
  out.size = n;
  out.crc = n > 0 ? crc32_gzip_refl(0, input, n) : 0;
  const size_t nchunks = std::max<size_t>(1, (n + deflatechunk - 1) / deflatechunk);
  const int nthreads = std::max(1, std::min<int>(threads > 0 ? threads : omp_get_max_threads(),
                                                 static_cast<int>(nchunks)));
  std::vector<std::vector<unsigned char>> pieces;
  std::vector<std::vector<unsigned char>> levelbufs;
  try {
    pieces.resize(nchunks);
    levelbufs.assign(static_cast<size_t>(nthreads),
                     std::vector<unsigned char>(ISAL_DEF_LVL3_DEFAULT));
  } catch (const std::bad_alloc &) {
    return false;
  }
  bool ok = true;
  const long long count = static_cast<long long>(nchunks);
#pragma omp parallel for schedule(dynamic, 1) num_threads(nthreads) reduction(&& : ok)
  for (long long c = 0; c < count; ++c) {
    const size_t begin = static_cast<size_t>(c) * deflatechunk;
    const size_t end = std::min(n, begin + deflatechunk);
    try {
      ok = compresschunk(input, begin, end, c + 1 == count,
                         levelbufs[static_cast<size_t>(omp_get_thread_num())],
                         pieces[static_cast<size_t>(c)]) && ok;
    } catch (const std::bad_alloc &) {
      ok = false;
    }
  }
  if (!ok) return false;
  size_t total = 0;
  for (const auto &p : pieces) total += p.size();
  try {
    out.data.clear();
    out.data.reserve(total);
  } catch (const std::bad_alloc &) {
    return false;
  }
  for (auto &p : pieces) {
    out.data.insert(out.data.end(), p.begin(), p.end());
    std::vector<unsigned char>().swap(p);
  }
  return true;
}

}  // namespace wf

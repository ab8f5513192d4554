// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/deflate.h"

#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>
#include <omp.h>

#include <algorithm>
#include <new>

namespace wf {

namespace {

constexpr size_t dictionary = 32768;

// The most a chunk of len bytes deflates to: stored blocks cost 5 bytes per 64 KiB, plus the
// ends.
constexpr size_t deflatebound(size_t len) { return len + len / 1024 + 1024; }

}  // namespace

// A thread's working memory: the compressor's level buffer (cleared, as the compressor's state
// must not hang on what memory held before) and room for one chunk's output (not cleared: only
// the bytes made are read).
struct ChunkDeflate::Scratch {
  std::unique_ptr<unsigned char[]> level;
  std::unique_ptr<unsigned char[]> out;
};

ChunkDeflate::ChunkDeflate(const unsigned char *input, size_t n, int threads) : input_(input), n_(n) {
  const size_t nchunks = std::max<size_t>(1, (n + deflatechunk - 1) / deflatechunk);
  try {
    pieces_.resize(nchunks);
    failed_.assign(nchunks, 0);
    for (int t = 0; t < std::max(threads, 1); ++t) {
      auto s = std::make_unique<Scratch>();
      s->level.reset(new unsigned char[ISAL_DEF_LVL3_DEFAULT]());
      s->out.reset(new unsigned char[deflatebound(std::min(n, deflatechunk))]);
      scratch_.push_back(std::move(s));
    }
    ready_ = true;
  } catch (const std::bad_alloc &) {
    ready_ = false;
  }
}

ChunkDeflate::~ChunkDeflate() = default;

void ChunkDeflate::compress(size_t c) {
  if (!ready_ || c >= pieces_.size()) return;
  const size_t t = static_cast<size_t>(omp_get_thread_num());
  if (t >= scratch_.size()) {
    failed_[c] = 1;
    return;
  }
  Scratch &scratch = *scratch_[t];
  const size_t begin = c * deflatechunk;
  const size_t end = std::min(n_, begin + deflatechunk);
  const bool final = c + 1 == pieces_.size();
  isal_zstream s;
  isal_deflate_init(&s);
  s.level = 3;
  s.level_buf = scratch.level.get();
  s.level_buf_size = static_cast<uint32_t>(ISAL_DEF_LVL3_DEFAULT);
  if (begin > 0) {
    const size_t from = begin > dictionary ? begin - dictionary : 0;
    if (isal_deflate_set_dict(&s, const_cast<unsigned char *>(input_ + from), static_cast<uint32_t>(begin - from)) !=
        COMP_OK) {
      failed_[c] = 1;
      return;
    }
  }
  const size_t len = end - begin;
  s.next_in = const_cast<unsigned char *>(input_ + begin);
  s.avail_in = static_cast<uint32_t>(len);
  s.next_out = scratch.out.get();
  s.avail_out = static_cast<uint32_t>(deflatebound(len));
  s.end_of_stream = final ? 1 : 0;
  // A piece that is not the last ends with a sync flush: on a byte boundary, no final block.
  s.flush = final ? NO_FLUSH : SYNC_FLUSH;
  if (isal_deflate(&s) != COMP_OK || s.avail_in != 0 || (final && s.internal_state.state != ZSTATE_END)) {
    failed_[c] = 1;
    return;
  }
  try {
    pieces_[c].assign(scratch.out.get(), scratch.out.get() + (deflatebound(len) - s.avail_out));
  } catch (const std::bad_alloc &) {
    failed_[c] = 1;
  }
}

bool ChunkDeflate::finish(Deflated &out) {
  scratch_.clear();
  if (!ready_ || std::find(failed_.begin(), failed_.end(), 1) != failed_.end()) return false;
  out.size = n_;
  out.crc = n_ > 0 ? crc32_gzip_refl(0, input_, n_) : 0;
  size_t total = 0;
  for (const auto &p : pieces_) total += p.size();
  try {
    out.data.clear();
    out.data.reserve(total);
  } catch (const std::bad_alloc &) {
    return false;
  }
  for (auto &p : pieces_) {
    out.data.insert(out.data.end(), p.begin(), p.end());
    std::vector<unsigned char>().swap(p);
  }
  return true;
}

bool deflateraw(const unsigned char *input, size_t n, Deflated &out, int threads) {
  const size_t nchunks = std::max<size_t>(1, (n + deflatechunk - 1) / deflatechunk);
  const int nthreads =
      std::max(1, std::min<int>(threads > 0 ? threads : omp_get_max_threads(), static_cast<int>(nchunks)));
  ChunkDeflate job(input, n, nthreads);
  if (!job.ready()) return false;
  const long long count = static_cast<long long>(job.chunks());
#pragma omp parallel for schedule(dynamic, 1) num_threads(nthreads)
  for (long long c = 0; c < count; ++c) job.compress(static_cast<size_t>(c));
  return job.finish(out);
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/package3mf.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include <omp.h>
#include <sys/mman.h>

#include "base/fatal.h"
#include "base/mappedfile.h"
#include "base/memory.h"
#include "base/text.h"
#include "base/textio.h"
#include "outputs/colourscale.h"
#include "outputs/outcommon.h"
#include "outputs/packagetext.h"

namespace wf {

namespace {

#define WF_MS "http://schemas.microsoft.com/3dmanufacturing"
#define WF_OWN "http://schemas.corvanta.com"
#define WF_OPC "http://schemas.openxmlformats.org/package/2006"

constexpr std::string_view starttag = "<model xmlns=\"" WF_MS
                                      "/core/2015/02\" unit=\"millimeter\" xml:lang=\"en-US\""
                                      " xmlns:m=\"" WF_MS
                                      "/material/2015/02\""
                                      " xmlns:p=\"" WF_MS
                                      "/production/2015/06\""
                                      " xmlns:l=\"" WF_OWN
                                      "/zqm/loadcase/2016/08\""
                                      " xmlns:t=\"" WF_OWN
                                      "/zqm/tetrahedron/2017/01\""
                                      " xmlns:b=\"" WF_MS
                                      "/beamlattice/2017/02\""
                                      " xmlns:bt=\"" WF_OWN
                                      "/zqm/beamlatticetag/2017/02\""
                                      " xmlns:s=\"" WF_MS "/slice/2015/07\">";
static_assert(starttag.size() == 585, "the model start tag is one record of 585 characters");

constexpr std::string_view relstart = "<Relationships xmlns=\"" WF_OPC "/relationships\">";
constexpr std::string_view xmldecl = "<?xml version=\"1.0\" encoding=\"utf-8\"?>";

// A small member: records given with their indentation depth.
struct Record {
  int tabs;
  std::string_view text;
};
void writemember(const Folder &in, const std::string &path, const std::string &modelpath,
                 std::initializer_list<Record> records) {
  // Kept deliberately: every member reports a failed open (message 31) under the name of the
  // model member, also when the model was written and a later member failed.
  // [pinned: Package3mf.FolderNamesOneMagnitudeAndFailedMembers]
  std::FILE *f = openoutput(in.at(path), modelpath);
  {
    BlockWriter out(f, path, 1 << 14);
    for (const Record &r : records) {
      out.put(std::string_view("\t\t\t\t\t", static_cast<size_t>(r.tabs)));
      out.put(r.text);
      out.put("\n");
    }
    out.flush();
  }
  closeoutput(f, path);
}

constexpr char hexdigit[] = "0123456789ABCDEF";

// The model member is cut into the records before the vertices, the vertex rows, the two
// records between, the triangle rows and the records after. The rows are formatted in blocks
// of blockrows, each block by one thread, at an offset known before: a vertex row has a fixed
// length, a triangle row's length follows from the widths of its six integers.
constexpr size_t blockrows = 4096;
// Blocks formatted side by side between two writes to the file when the whole text is not held
// (a buffer of about 4 MiB, as the other members' block writer has).
constexpr size_t stripeblocks = 8;

constexpr std::string_view vertexopen = "\t\t\t\t\t<vertex x=\"";
constexpr std::string_view vertexy = "\" y=\"";
constexpr std::string_view vertexz = "\" z=\"";
constexpr std::string_view rowclose = "\" />\n";
constexpr size_t coordwidth = 16;
constexpr size_t vertexbytes = vertexopen.size() + vertexy.size() + vertexz.size() + rowclose.size() + 3 * coordwidth;

constexpr std::string_view triangleopen = "\t\t\t\t\t<triangle v1=\"";
constexpr std::string_view trianglev2 = "\" v2=\"";
constexpr std::string_view trianglev3 = "\" v3=\"";
constexpr std::string_view trianglep1 = "\" pid=\"2\" p1=\"";
constexpr std::string_view trianglep2 = "\" p2=\"";
constexpr std::string_view trianglep3 = "\" p3=\"";
constexpr size_t trianglefixed = triangleopen.size() + trianglev2.size() + trianglev3.size() + trianglep1.size() +
                                 trianglep2.size() + trianglep3.size() + rowclose.size();
// The longest triangle row: six integers of 20 characters at most (putint's widest).
constexpr size_t trianglemost = trianglefixed + 6 * 20;

// Characters of v in minimal width, with its sign: what putint writes.
size_t intwidth(long long v) {
  const unsigned long long magnitude = static_cast<unsigned long long>(v);
  unsigned long long u = v < 0 ? 0ull - magnitude : magnitude;
  size_t w = v < 0 ? 2 : 1;
  for (; u >= 10000; u /= 10000) w += 4;
  return w + (u >= 10) + (u >= 100) + (u >= 1000);
}

// A record: tabs, text, line feed, appended to a text.
void record(std::string &to, int tabs, std::string_view text) {
  to.append(static_cast<size_t>(tabs), '\t');
  to.append(text);
  to.push_back('\n');
}

// The records before the first vertex row, the colour group among them.
std::string modelhead() {
  std::string head;
  record(head, 0, xmldecl);
  record(head, 0, starttag);
  record(head, 1, "<resources>");
  record(head, 2, "<m:colorgroup id=\"2\">");
  for (int i = 0; i < ncolours; ++i) {
    int rgb[3];
    colourscale(i, rgb[0], rgb[1], rgb[2]);
    char text[40];
    char *p = putlit(text, "<m:color color=\"#");
    for (int c : rgb) {
      *p++ = hexdigit[(c >> 4) & 15];
      *p++ = hexdigit[c & 15];
    }
    p = putlit(p, "\" />");
    record(head, 3, std::string_view(text, static_cast<size_t>(p - text)));
  }
  record(head, 2, "</m:colorgroup>");
  record(head, 2,
         "<object id=\"1\" name=\"" + std::string(objectname) + "\" partnumber=\"" + std::string(uuid1) +
             "\" type=\"model\" p:UUID=\"" + std::string(uuid1) + "\" pid=\"2\" pindex=\"0\">");
  record(head, 3, "<mesh>");
  record(head, 4, "<vertices>");
  return head;
}

// The records after the last triangle row.
std::string modeltail() {
  std::string tail;
  record(tail, 4, "</triangles>");
  record(tail, 3, "</mesh>");
  record(tail, 2, "</object>");
  record(tail, 1, "</resources>");
  record(tail, 1, "<build p:UUID=\"" + std::string(uuid2) + "\">");
  // Kept deliberately: the item's partnumber holds the object name, where the object's holds
  // its UUID. [pinned: regression set, the 3D/3dmodel.model of every job with a package]
  record(
      tail, 2,
      "<item objectid=\"1\" partnumber=\"" + std::string(objectname) + "\" p:UUID=\"" + std::string(uuid3) + "\" />");
  record(tail, 1, "</build>");
  record(tail, 0, "</model>");
  return tail;
}

// The rows of the model member and what they are made of: vertex i without coordinates (beyond
// the stored ones) is written at the origin; a corner that names no vertex has colour 0.
struct ModelRows {
  const SurfaceMesh &mesh;
  const int32_t *colour;  // one a vertex row
  size_t n = 0, nv = 0;   // vertex rows, vertices with coordinates
  size_t nt = 0;          // triangle rows

  int32_t colourof(int32_t v) const {
    return v >= 1 && static_cast<size_t>(v) <= n ? colour[static_cast<size_t>(v - 1)] : 0;
  }
  char *vertex(char *p, size_t i) const {
    const double *v = i < nv ? &mesh.vrt[3 * i] : nullptr;
    p = putlit(p, vertexopen);
    p = scifield(p, v ? v[0] : 0.0, coordwidth, 6);
    p = putlit(p, vertexy);
    p = scifield(p, v ? v[1] : 0.0, coordwidth, 6);
    p = putlit(p, vertexz);
    p = scifield(p, v ? v[2] : 0.0, coordwidth, 6);
    return putlit(p, rowclose);
  }
  char *triangle(char *p, size_t i) const {
    const int32_t *c = &mesh.tri[3 * i];
    p = putlit(p, triangleopen);
    p = putint(p, c[0] - 1);
    p = putlit(p, trianglev2);
    p = putint(p, c[1] - 1);
    p = putlit(p, trianglev3);
    p = putint(p, c[2] - 1);
    p = putlit(p, trianglep1);
    p = putint(p, colourof(c[0]));
    p = putlit(p, trianglep2);
    p = putint(p, colourof(c[1]));
    p = putlit(p, trianglep3);
    p = putint(p, colourof(c[2]));
    return putlit(p, rowclose);
  }
  // The length of triangle(i), to the byte.
  size_t trianglebytes(size_t i) const {
    const int32_t *c = &mesh.tri[3 * i];
    return trianglefixed + intwidth(c[0] - 1) + intwidth(c[1] - 1) + intwidth(c[2] - 1) + intwidth(colourof(c[0])) +
           intwidth(colourof(c[1])) + intwidth(colourof(c[2]));
  }
};

// One run of rows: at[b] is the offset of block b from the first row, at[nblocks] the bytes of
// all rows.
struct RowSection {
  bool triangles = false;
  size_t rows = 0;
  std::vector<size_t> at;
  size_t bytes() const { return at.back(); }
};

RowSection vertexsection(const ModelRows &rows) {
  RowSection s;
  s.rows = rows.n;
  const size_t nblocks = (s.rows + blockrows - 1) / blockrows;
  s.at.resize(nblocks + 1);
  for (size_t b = 0; b <= nblocks; ++b) s.at[b] = std::min(s.rows, b * blockrows) * vertexbytes;
  return s;
}

// The block lengths of the triangle rows, measured side by side.
RowSection trianglesection(const ModelRows &rows) {
  RowSection s;
  s.triangles = true;
  s.rows = rows.nt;
  const size_t nblocks = (s.rows + blockrows - 1) / blockrows;
  s.at.assign(nblocks + 1, 0);
  const long long count = static_cast<long long>(nblocks);
#pragma omp parallel for schedule(dynamic, 1)
  for (long long b = 0; b < count; ++b) {
    const size_t begin = static_cast<size_t>(b) * blockrows;
    const size_t end = std::min(s.rows, begin + blockrows);
    size_t bytes = 0;
    for (size_t i = begin; i < end; ++i) bytes += rows.trianglebytes(i);
    s.at[static_cast<size_t>(b) + 1] = bytes;
  }
  for (size_t b = 0; b < nblocks; ++b) s.at[b + 1] += s.at[b];
  return s;
}

// Writes n bytes of text to f: 0, or the system's error number.
int writetext(std::FILE *f, const char *text, size_t n) {
  errno = 0;
  if (n > 0 && std::fwrite(text, 1, n, f) != n) return errno != 0 ? errno : EIO;
  return 0;
}

// Memory for the whole text, on huge pages where the kernel gives them; null when it cannot be
// had.
struct FreeText {
  void operator()(char *p) const { std::free(p); }
};
std::unique_ptr<char, FreeText> textmemory(size_t bytes) {
  constexpr size_t huge = size_t{2} << 20;
  if (bytes < 2 * huge)
    return std::unique_ptr<char, FreeText>(static_cast<char *>(std::malloc(std::max<size_t>(bytes, 1))));
  const size_t whole = (bytes + huge - 1) / huge * huge;
  void *p = std::aligned_alloc(huge, whole);
  if (p != nullptr) madvise(p, whole, MADV_HUGEPAGE);  // advice only
  return std::unique_ptr<char, FreeText>(static_cast<char *>(p));
}

// Where the model text is formatted: the whole text in memory when there is one (written to the
// file by the caller), or else a bounded buffer of one stripe of blocks, written to the file as
// soon as it is full. A failed write is message 200 naming the file.
class ModelOut {
 public:
  ModelOut(std::FILE *f, const std::string &path, char *whole) : f_(f), path_(path), whole_(whole) {
    if (whole_ == nullptr) allocate(stripe_, stripeblocks * blockrows * trianglemost, "blockwriter, buffer, 1");
  }
  void put(std::string_view text) {
    for (size_t done = 0; done < text.size();) {
      const size_t left = text.size() - done;
      const size_t k = whole_ != nullptr ? left : std::min(left, stripe_.size());
      std::memcpy(room(), text.data() + done, k);
      advance(k);
      done += k;
    }
  }
  // The rows of a section, blocks side by side: all at once into the whole text, else a stripe
  // of blocks at a time.
  void putrows(const ModelRows &rows, const RowSection &s) {
    const size_t nblocks = s.at.size() - 1;
    const size_t stripe = whole_ != nullptr ? std::max<size_t>(nblocks, 1) : stripeblocks;
    for (size_t b0 = 0; b0 < nblocks; b0 += stripe) {
      const size_t b1 = std::min(nblocks, b0 + stripe);
      char *base = room();
      const long long first = static_cast<long long>(b0), last = static_cast<long long>(b1);
#pragma omp parallel for schedule(dynamic, 1)
      for (long long b = first; b < last; ++b) {
        const size_t begin = static_cast<size_t>(b) * blockrows;
        const size_t end = std::min(s.rows, begin + blockrows);
        char *p = base + (s.at[static_cast<size_t>(b)] - s.at[b0]);
        if (s.triangles)
          for (size_t i = begin; i < end; ++i) p = rows.triangle(p, i);
        else
          for (size_t i = begin; i < end; ++i) p = rows.vertex(p, i);
      }
      advance(s.at[b1] - s.at[b0]);
    }
  }

 private:
  char *room() { return whole_ != nullptr ? whole_ + at_ : stripe_.data(); }
  // Takes the n bytes at room(): into the whole text, or to the file.
  void advance(size_t n) {
    if (whole_ == nullptr) {
      const int err = writetext(f_, stripe_.data(), n);
      if (err != 0) fatal(200, {text256(path_), std::to_string(err)});
    }
    at_ += n;
  }

  std::FILE *f_;
  const std::string &path_;
  char *whole_;
  size_t at_ = 0;
  std::vector<char> stripe_;
};

}  // namespace

bool writemodel(const SurfaceMesh &mesh, const std::vector<float> &dispsingle, const std::string &path,
                const std::string &report, Deflated *packed, const Folder &in) {
  std::FILE *f = openoutput(in.at(path), report);
  ModelRows rows{mesh, nullptr};
  rows.n = mesh.nvrt > 0 ? static_cast<size_t>(mesh.nvrt) : 0;
  rows.nv = std::min(rows.n, mesh.vrt.size() / 3);
  rows.nt = std::min(mesh.ntri > 0 ? static_cast<size_t>(mesh.ntri) : 0, mesh.tri.size() / 3);
  const size_t n = rows.n;

  // Colour index of each vertex from its displacement magnitude, on this surface's own scale.
  std::vector<int32_t> colour;
  {
    std::vector<float> magnitude;
    allocate(magnitude, n, "write3mf, magnitude, 1");
    const size_t nd = std::min(n, dispsingle.size() / 3);
    for (size_t i = 0; i < nd; ++i) {
      const float *d = &dispsingle[3 * i];
      magnitude[i] = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    }
    float lo = n ? magnitude[0] : 0.0f, hi = lo;
    for (size_t i = 1; i < n; ++i) {
      lo = std::min(lo, magnitude[i]);
      hi = std::max(hi, magnitude[i]);
    }
    allocate(colour, n, "write3mf, colour, 1");
    for (size_t i = 0; i < n; ++i) colour[i] = colourindex(magnitude[i], lo, hi);
  }
  rows.colour = colour.data();

  const std::string head = modelhead();
  std::string middle;
  record(middle, 4, "</vertices>");
  record(middle, 4, "<triangles>");
  const std::string tail = modeltail();
  const RowSection vertices = vertexsection(rows);
  const RowSection triangles = trianglesection(rows);
  const size_t size = head.size() + vertices.bytes() + middle.size() + triangles.bytes() + tail.size();

  // With a package the whole text is formatted at once: into the file's own pages, or where
  // those cannot be had into memory, then written.
  std::unique_ptr<MappedFile> mapped;
  std::unique_ptr<char, FreeText> held;
  char *whole = nullptr;
  if (packed != nullptr) {
    mapped = std::make_unique<MappedFile>(in.at(path), fileno(f), size);
    whole = mapped->data();
    if (whole == nullptr) {
      held = textmemory(size);
      whole = held.get();
    }
  }
  {
    ModelOut out(f, path, whole);
    out.put(head);
    out.putrows(rows, vertices);
    out.put(middle);
    out.putrows(rows, triangles);
    out.put(tail);
  }
  release(colour);

  bool deflated = false;
  if (whole != nullptr) {
    // One thread writes the file (unless the text is in the file's pages already) while the
    // others deflate the chunks; it joins them when done.
    const unsigned char *text = reinterpret_cast<const unsigned char *>(whole);
    const int nthreads = omp_get_max_threads();
    ChunkDeflate job(text, size, nthreads);
    const long long count = job.ready() ? static_cast<long long>(job.chunks()) : 0;
    const bool inplace = mapped->mapped();
    int err = 0;
#pragma omp parallel num_threads(nthreads)
    {
#pragma omp single nowait
      if (!inplace) err = writetext(f, whole, size);
#pragma omp for schedule(dynamic, 1)
      for (long long c = 0; c < count; ++c) job.compress(static_cast<size_t>(c));
    }
    if (err != 0) fatal(200, {text256(path), std::to_string(err)});
    deflated = job.finish(*packed);
  }
  closeoutput(f, path);
  return deflated;
}

std::string_view modelstarttag() { return starttag; }
std::string_view relationshipsstarttag() { return relstart; }

std::string packagefolder(const std::string &outstlpath) {
  // Kept deliberately: the whole path is searched, not the file name alone: a dot in a folder
  // cuts there when the name has none ("out.v2/part" gives "out_color").
  // [pinned: Package3mf.FolderNamesOneMagnitudeAndFailedMembers]
  const size_t p = lastdot(outstlpath);
  return (p >= 2 ? outstlpath.substr(0, p - 1) : std::string()) + "_color";
}

PackageFiles write3mf(const SurfaceMesh &mesh, const std::vector<float> &dispsingle, const std::string &folder,
                      const PackageModelFn &onmodel, const ZipNoteFn &onzip, const Folder &in) {
  // Existing folders are no error, and failures show only when a member fails to open.
  for (const char *sub : {"", "/_rels", "/3D", "/3D/_rels", "/History"}) {
    std::error_code ec;
    std::filesystem::create_directories(in.at(folder + sub), ec);
  }
  PackageFiles files;
  files.modelpath = folder + "/3D/3dmodel.model";
  files.zipname = folder + ".3mf";
  const std::string &modelpath = files.modelpath;
  Deflated modelpacked;
  const bool deflated = writemodel(mesh, dispsingle, modelpath, modelpath, &modelpacked, in);
  if (onmodel) onmodel(files);

  const std::string rel = std::string(relstart);
  writemember(in, folder + "/_rels/.rels", modelpath,
              {{0, xmldecl},
               {0, rel},
               {1, "<Relationship Type=\"" WF_MS "/2013/01/3dmodel\" Target=\"/3D/3dmodel.model\" Id=\"rel0\" />"},
               {0, "</Relationships>"}});
  writemember(in, folder + "/3D/_rels/3dmodel.model.rels", modelpath,
              {{0, xmldecl},
               {0, rel},
               {1, "<Relationship Type=\"" WF_OWN
                   "/zqm/tessero/history/2018/06\" Target=\"/History/history.xml\" Id=\"rel1\" />"},
               {0, "</Relationships>"}});
  const std::string historyopen = "<history partnumber=\"" + std::string(uuid1) + "\">";
  writemember(in, folder + "/History/history.xml", modelpath,
              {{0, "<root>"},
               {1, historyopen},
               {2, "<history_node identifier=\"tessero_modify\">"},
               {3, "<history_item key=\"date_raw\" value=\"185485.63\"/>"},
               {3, "<history_item key=\"date\" value=\"28.02.1991 13:37\"/>"},
               {2, "</history_node>"},
               {1, "</history>"},
               {0, "</root>"}});
  // Kept deliberately: the content types declare image, texture and kardoimport parts that the
  // package does not hold; the list is fixed. [pinned: regression set, every job's
  // [Content_Types].xml]
  writemember(
      in, folder + "/[Content_Types].xml", modelpath,
      {{0, xmldecl},
       {0, "<Types xmlns=\"" WF_OPC "/content-types\">"},
       {1, "<Default Extension=\"jpeg\" ContentType=\"image/jpeg\" />"},
       {1, "<Default Extension=\"jpg\" ContentType=\"image/jpeg\" />"},
       {1, "<Default Extension=\"model\" ContentType=\"application/vnd.ms-package.3dmanufacturing-3dmodel+xml\" />"},
       {1, "<Default Extension=\"png\" ContentType=\"image/png\" />"},
       {1, "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\" />"},
       {1,
        "<Default Extension=\"texture\" ContentType=\"application/vnd.ms-package.3dmanufacturing-3dmodeltexture\" />"},
       {1, "<Default Extension=\"kardoimport\" ContentType=\"application/kardoimport\" />"},
       {1, "<Default Extension=\"xml\" ContentType=\"application/xml\" />"},
       {0, "</Types>"}});

  // The zip: members in the order of the package, the model last.
  std::string list =
      "_rels/.rels\n3D/_rels/3dmodel.model.rels\nHistory/history.xml\n[Content_Types].xml\n"
      "3D/3dmodel.model\n";
  std::vector<char> filelist(list.begin(), list.end());
  filelist.push_back('\0');
  // The model is stored as deflated from the text it was written from, when that was kept.
  DeflatedMember model;
  model.name = "3D/3dmodel.model";
  model.packed = deflated ? &modelpacked : nullptr;
  files.zipstatus = zippackage(files.zipname.c_str(), folder.c_str(), filelist.data(), &model, onzip, in);
  return files;
}

}  // namespace wf

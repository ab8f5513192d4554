// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/package3mf.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

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

constexpr std::string_view starttag =
    "<model xmlns=\"" WF_MS "/core/2015/02\" unit=\"millimeter\" xml:lang=\"en-US\""
    " xmlns:m=\"" WF_MS "/material/2015/02\""
    " xmlns:p=\"" WF_MS "/production/2015/06\""
    " xmlns:l=\"" WF_OWN "/zqm/loadcase/2016/08\""
    " xmlns:t=\"" WF_OWN "/zqm/tetrahedron/2017/01\""
    " xmlns:b=\"" WF_MS "/beamlattice/2017/02\""
    " xmlns:bt=\"" WF_OWN "/zqm/beamlatticetag/2017/02\""
    " xmlns:s=\"" WF_MS "/slice/2015/07\">";
static_assert(starttag.size() == 585, "the model start tag is one record of 585 characters");

constexpr std::string_view relstart = "<Relationships xmlns=\"" WF_OPC "/relationships\">";
constexpr std::string_view xmldecl = "<?xml version=\"1.0\" encoding=\"utf-8\"?>";


// A small member: records given with their indentation depth.
struct Record {
  int tabs;
  std::string_view text;
};
void writemember(const std::string &path, const std::string &modelpath,
                 std::initializer_list<Record> records) {
  // Kept deliberately: every member reports a failed open (message 31) under the name of the
  // model member, also when the model was written and a later member failed.
  // [pinned: Package3mf.FolderNamesOneMagnitudeAndFailedMembers]
  std::FILE *f = openoutput(path, modelpath);
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

}  // namespace

void writemodel(const SurfaceMesh &mesh, const std::vector<float> &dispsingle,
                const std::string &path, const std::string &report) {
  std::FILE *f = openoutput(path, report);
  BlockWriter out(f, path);
  auto rec = [&](int tabs, std::string_view text) {
    char *p = out.reserve(static_cast<size_t>(tabs) + text.size() + 1);
    for (int k = 0; k < tabs; ++k) *p++ = '\t';
    p = putlit(p, text);
    *p++ = '\n';
    out.advance(p);
  };
  rec(0, xmldecl);
  rec(0, starttag);
  rec(1, "<resources>");
  rec(2, "<m:colorgroup id=\"2\">");
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
    rec(3, std::string_view(text, static_cast<size_t>(p - text)));
  }
  rec(2, "</m:colorgroup>");
  rec(2, "<object id=\"1\" name=\"" + std::string(objectname) + "\" partnumber=\"" +
             std::string(uuid1) + "\" type=\"model\" p:UUID=\"" + std::string(uuid1) +
             "\" pid=\"2\" pindex=\"0\">");
  rec(3, "<mesh>");
  rec(4, "<vertices>");

  const size_t n = mesh.nvrt > 0 ? static_cast<size_t>(mesh.nvrt) : 0;
  const size_t t = mesh.ntri > 0 ? static_cast<size_t>(mesh.ntri) : 0;
  const size_t nv = std::min(n, mesh.vrt.size() / 3);
  const size_t nt = std::min(t, mesh.tri.size() / 3);
  for (size_t i = 0; i < n; ++i) {
    const double *v = i < nv ? &mesh.vrt[3 * i] : nullptr;
    char *p = out.reserve(5 + 3 * 16 + 40);
    p = putlit(p, "\t\t\t\t\t<vertex x=\"");
    p = scifield(p, v ? v[0] : 0.0, 16, 6);
    p = putlit(p, "\" y=\"");
    p = scifield(p, v ? v[1] : 0.0, 16, 6);
    p = putlit(p, "\" z=\"");
    p = scifield(p, v ? v[2] : 0.0, 16, 6);
    p = putlit(p, "\" />\n");
    out.advance(p);
  }
  rec(4, "</vertices>");

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
  auto colourof = [&](int32_t v) -> int32_t {
    return v >= 1 && static_cast<size_t>(v) <= n ? colour[static_cast<size_t>(v - 1)] : 0;
  };

  rec(4, "<triangles>");
  for (size_t i = 0; i < nt; ++i) {
    const int32_t *c = &mesh.tri[3 * i];
    char *p = out.reserve(5 + 6 * 12 + 80);
    p = putlit(p, "\t\t\t\t\t<triangle v1=\"");
    p = putint(p, c[0] - 1);
    p = putlit(p, "\" v2=\"");
    p = putint(p, c[1] - 1);
    p = putlit(p, "\" v3=\"");
    p = putint(p, c[2] - 1);
    p = putlit(p, "\" pid=\"2\" p1=\"");
    p = putint(p, colourof(c[0]));
    p = putlit(p, "\" p2=\"");
    p = putint(p, colourof(c[1]));
    p = putlit(p, "\" p3=\"");
    p = putint(p, colourof(c[2]));
    p = putlit(p, "\" />\n");
    out.advance(p);
  }
  release(colour);
  rec(4, "</triangles>");
  rec(3, "</mesh>");
  rec(2, "</object>");
  rec(1, "</resources>");
  rec(1, "<build p:UUID=\"" + std::string(uuid2) + "\">");
  // Kept deliberately: the item's partnumber holds the object name, where the object's holds
  // its UUID. [pinned: regression set, the 3D/3dmodel.model of every job with a package]
  rec(2, "<item objectid=\"1\" partnumber=\"" + std::string(objectname) + "\" p:UUID=\"" +
             std::string(uuid3) + "\" />");
  rec(1, "</build>");
  rec(0, "</model>");
  out.flush();
  closeoutput(f, path);
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

void write3mf(Reporter &rep, const SurfaceMesh &mesh, const std::vector<float> &dispsingle,
              const std::string &folder) {
  // Existing folders are no error, and failures show only when a member fails to open.
  for (const char *sub : {"", "/_rels", "/3D", "/3D/_rels", "/History"}) {
    std::error_code ec;
    std::filesystem::create_directories(folder + sub, ec);
  }
  const std::string modelpath = folder + "/3D/3dmodel.model";
  writemodel(mesh, dispsingle, modelpath, modelpath);
  rep.finishedfile(modelpath);
  rep.say("Finished writing 3dmodel file " + modelpath);
  rep.blank();
  rep.blank();

  const std::string rel = std::string(relstart);
  writemember(folder + "/_rels/.rels", modelpath,
              {{0, xmldecl},
               {0, rel},
               {1, "<Relationship Type=\"" WF_MS "/2013/01/3dmodel\" Target=\"/3D/3dmodel.model\" Id=\"rel0\" />"},
               {0, "</Relationships>"}});
  writemember(folder + "/3D/_rels/3dmodel.model.rels", modelpath,
              {{0, xmldecl},
               {0, rel},
               {1, "<Relationship Type=\"" WF_OWN "/zqm/tessero/history/2018/06\" Target=\"/History/history.xml\" Id=\"rel1\" />"},
               {0, "</Relationships>"}});
  const std::string historyopen = "<history partnumber=\"" + std::string(uuid1) + "\">";
  writemember(folder + "/History/history.xml", modelpath,
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
  writemember(folder + "/[Content_Types].xml", modelpath,
              {{0, xmldecl},
               {0, "<Types xmlns=\"" WF_OPC "/content-types\">"},
               {1, "<Default Extension=\"jpeg\" ContentType=\"image/jpeg\" />"},
               {1, "<Default Extension=\"jpg\" ContentType=\"image/jpeg\" />"},
               {1, "<Default Extension=\"model\" ContentType=\"application/vnd.ms-package.3dmanufacturing-3dmodel+xml\" />"},
               {1, "<Default Extension=\"png\" ContentType=\"image/png\" />"},
               {1, "<Default Extension=\"rels\" ContentType=\"application/vnd.openxmlformats-package.relationships+xml\" />"},
               {1, "<Default Extension=\"texture\" ContentType=\"application/vnd.ms-package.3dmanufacturing-3dmodeltexture\" />"},
               {1, "<Default Extension=\"kardoimport\" ContentType=\"application/kardoimport\" />"},
               {1, "<Default Extension=\"xml\" ContentType=\"application/xml\" />"},
               {0, "</Types>"}});

  // The zip: members in the order of the package, the model last.
  std::string zipname = folder + ".3mf";
  std::string list =
      "_rels/.rels\n3D/_rels/3dmodel.model.rels\nHistory/history.xml\n[Content_Types].xml\n"
      "3D/3dmodel.model\n";
  std::vector<char> filelist(list.begin(), list.end());
  filelist.push_back('\0');
  const int status = zippackage(rep, zipname.c_str(), folder.c_str(), filelist.data());
  if (status == 0) {
    rep.finishedfile(zipname);
    rep.say("Finished writing 3MF file " + zipname);
  } else {
    rep.say("ERROR zipping");
  }
}

}  // namespace wf

// SPDX-License-Identifier: GPL-3.0-or-later
// Small text helpers shared by every layer: trimming, integer and clock texts, the 256-character
// field, file tests, the last-dot rules of derived names, and JSON string escaping.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/folder.h"

namespace wf {

// The text without its trailing blanks.
std::string rtrim(std::string_view text);
// Decimal text of an integer; with group and more than 4 characters, commas between groups of
// three digits from the right, never directly behind the sign ("-123,456").
std::string inttext(long long value, bool group = false);
// hh:mm:ss.cc, hundredths cut; a day or more puts "N day(s) " in front.
std::string walltext(double seconds);
// The text in a blank-padded field of 256 characters.
std::string text256(const std::string &text);
// Whether a file (not a folder) of that name exists.
bool fileexists(const std::string &path);
// The text before the last dot of the whole path (folders included); the path itself without.
std::string stripext(const std::string &path);
// Position of the last "." in the whole path, counted from 1; 0 when there is none.
size_t lastdot(std::string_view path);
// The two names of a repaired surface. The repair writes "<stem>_ls_repair.stl", the stem being
// the path before its last dot when the file exists (in `in`) and the whole path when it does
// not; a read
// looks for the text before the last dot (nothing when the dot comes first or there is none)
// and "_ls_repair.stl".
// Kept deliberately: the two differ for paths without a dot or with a leading one (the suite's
// readers and writers of repaired files follow them): "part" is repaired into
// "part_ls_repair.stl", yet a read of "part" looks for "_ls_repair.stl".
// [pinned: RepairedNames.OutputAndSibling, ReadStl.RepairedSibling]
std::string repairoutputname(const std::string &path, const Folder &in = Folder());
std::string repairedsiblingname(const std::string &path);
// JSON string content of a text (no quotes around it), the solidus left as it is; invalid
// UTF-8 is replaced, never thrown.
std::string jsonescape(std::string_view text);

}  // namespace wf

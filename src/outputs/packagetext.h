// SPDX-License-Identifier: GPL-3.0-or-later
// Fixed texts of the coloured 3MF package: the model start tag (one record of 585 characters
// with the namespaces of 3MF, its extensions and the suite's own schemas), the identifiers and
// the object name.
#pragma once

#include <string_view>

namespace wf {

inline constexpr std::string_view uuid1 = "00000000-0000-0000-0000-000000000001";
inline constexpr std::string_view uuid2 = "00000000-0000-0000-0000-000000000002";
inline constexpr std::string_view uuid3 = "00000000-0000-0000-0000-000000000003";
inline constexpr std::string_view objectname = "tessero-sim-result";

std::string_view modelstarttag();
// Relationship record shared by _rels/.rels and 3D/_rels/3dmodel.model.rels (no indentation).
std::string_view relationshipsstarttag();

}  // namespace wf

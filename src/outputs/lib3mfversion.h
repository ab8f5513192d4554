// SPDX-License-Identifier: GPL-3.0-or-later
// The interface-version query that the 3MF conversion checks before it does anything. It is a
// replaceable function pointer so that the checks can be run against other library versions;
// by default it asks the linked lib3MF.
#pragma once

#include <cstdint>

namespace wf {

using lib3mfversionfn = int (*)(uint32_t *major, uint32_t *minor, uint32_t *micro);
extern lib3mfversionfn lib3mfversionquery;
// The default: lib3mf_getinterfaceversion of the linked library.
int lib3mfinterfaceversion(uint32_t *major, uint32_t *minor, uint32_t *micro);

}  // namespace wf

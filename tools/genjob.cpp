// SPDX-License-Identifier: GPL-2.0-or-later
// Sample-job generator (placeholder until the generator lands).
#include <cstdio>
int main() {
  std::puts("genjob: not yet available");
  return 1;
}

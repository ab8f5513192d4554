// SPDX-License-Identifier: GPL-2.0-or-later
// The ground every step stands on: the Fatal exception with its checks, text helpers, text I/O,
// checked allocation and the Reporter.
#pragma once

#include "base/fatal.h"
#include "base/memory.h"
#include "base/reporter.h"
#include "base/text.h"
#include "base/textio.h"
#include "control/runstate.h"

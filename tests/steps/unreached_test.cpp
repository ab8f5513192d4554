// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "app/steps.h"
#include "reporting.h"

// The words of failures that no job reaches, fed to the steps' own line makers: a zip that took
// its members but could not be closed keeps its missing quote after the name, its statuses follow
// the console's number mode at the width of an int while a member's size stays decimal, and a
// writer that lib3MF could not give is reported with the reader's words.
TEST(OutputSteps, LinesNoJobReaches) {
  using wf::ZipEvent;
  wft::CapturedReporter cap;
  const auto said = [&](const wf::ZipNote &note) {
    wf::zipline(cap.rep, note);
    return cap.text();
  };
  EXPECT_EQ(said({ZipEvent::notclosed, "p_color.3mf", -102}), "zip:  error in closing \"p_color.3mf(-102)\n");

  wf::Conversion c;
  c.status = -9;
  c.libstatus = static_cast<int>(0x80000001u);
  wf::conversionfailure(cap.rep, c);
  EXPECT_EQ(cap.text(), "could not create model reader: 80000001\n");
  ASSERT_EQ(cap.rep.numbermode(), wf::NumberMode::hexadecimal);

  EXPECT_EQ(said({ZipEvent::notclosed, "p_color.3mf", -102}), "zip:  error in closing \"p_color.3mf(FFFFFF9A)\n");
  EXPECT_EQ(said({ZipEvent::notclosedinzip, "p_color/3D/3dmodel.model", -1}),
            "zip:  error in closing \"p_color/3D/3dmodel.model\" in the zipfile (FFFFFFFF)\n");
  EXPECT_EQ(said({ZipEvent::membersize, "p_color/_rels/.rels", 264}),
            "zip:  file \"p_color/_rels/.rels\" is 264 bytes\n");
}

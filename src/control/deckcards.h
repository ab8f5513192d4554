// SPDX-License-Identifier: GPL-3.0-or-later
// The cards of the control deck, one record each, in one table (control/deck.cpp): the keyword,
// how its value is read and where it goes, its line in the echo and its own checks with their
// places in the validation. The parser, the echo and the validation (control/deck.h) read this table;
// the README's card table lists the same keywords (tests/control/deck_test.cpp holds the two
// together). Adding a card is adding a record; a check that looks at more than one card is one
// of the named checks beside the table in control/deck.cpp.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/list.h"
#include "control/settings.h"

namespace wf {

// How a card's value is read, and which target of its record takes it.
enum class CardKind {
  flag,       // no value; sets flag
  clearflag,  // no value; clears flag
  real,       // one real into real; a value that is not finite does not read
  integer,    // one integer into integer
  letter,     // one token; its first character (a blank for an empty token) into letter
  text,       // one token, quotes stripped, into text
  namelist,   // the lines up to the next card, quotes stripped, into names
  filelist,   // readstlf into filelist (a list running to the end keeps its last name twice)
  idlist,     // one integer a line up to the next card into ids; must be followed by a card
};

struct CardRead;  // the parser's state while one card is read (control/deck.cpp)

// A check of the settings one card gives. When fails holds, message code is posted as an error,
// with the card's value as shown in the echo as its one variable if withvalue is set, else with
// none. place: 1-based, in one count with the named checks across cards; 0 for no check.
struct CardCheck {
  int place = 0;
  int code = 0;
  bool (*fails)(const Settings &, const JobFiles &) = nullptr;
  bool withvalue = false;
};

struct DeckCard {
  std::string_view keyword;  // the first five characters that name the card, "*" first
  CardKind kind = CardKind::flag;
  // Set when the card is given (cleared by a clearflag card); nullptr for a card without one.
  bool Settings::*flag = nullptr;
  // The target of the kind; the others stay nullptr.
  double Settings::*real = nullptr;
  int32_t Settings::*integer = nullptr;
  char Settings::*letter = nullptr;
  std::string JobFiles::*text = nullptr;
  List<std::string> Settings::*names = nullptr;
  List<std::string> JobFiles::*filelist = nullptr;
  List<int32_t> JobFiles::*ids = nullptr;
  // A handler of this card alone (a reset with a warning, a note for the echo), run after the
  // value is stored.
  void (*after)(CardRead &) = nullptr;
  // The label (30 characters) of the card's line in the echo, empty for none. The lines follow
  // the order of the table.
  std::string_view echolabel = {};
  CardCheck checks[2] = {};
};

// The table, in the order in which the parser tests the keywords.
std::span<const DeckCard> deckcards();
// The card whose keyword is key (five characters, blank padded); nullptr for an unknown card.
const DeckCard *findcard(std::string_view key);
// The value of a real, integer or letter card as the echo shows it; empty for other kinds.
std::string cardvalue(const DeckCard &card, const Settings &settings);

}  // namespace wf

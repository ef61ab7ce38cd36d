// Names: how people address a control, and how its value is written.
//
// A control is addressed by its family's name and its subscripts, `gain[2][1]` or `gain 2 1`, or
// by the numbers of the registry, `20:258`. The variable index of a family with two dimensions is
// not a subscript: the first subscript stands in bits 0 to 7, the second in bits 8 to 15, so
// gain[2][1] is 2 + 1 * 256 = 258. Only these functions know that. Main thread; nothing stops the
// process.
#pragma once

#include <string>
#include <vector>

#include "device.h"

/// One control: the numbers of a request, and its family.
struct Address {
  const Family* family;  ///< null if no family has the id
  unsigned int id;       ///< variable id
  unsigned int index;    ///< variable index
};

/// Skips blanks in front of `text`.
void skipBlanks(const char*& text);

/// Reads one control from the front of `text`, or all members of a family that fit the subscripts
/// given: `gain 2` is gain[2][0], gain[2][1], gain[2][2]. Moves `text` behind what it read. An
/// empty result means that there is no such control; `error` then says why.
std::vector<Address> parseControls(const char*& text, std::string& error);

/// As parseControls, for exactly one control; a family's name without all of its subscripts is an
/// error. False with `error` when there is none.
bool parseControl(const char*& text, Address& control, std::string& error);

/// The readable name, or "id:index" for a control that has none.
std::string controlName(const Address& control);
/// The same by its numbers.
std::string controlName(unsigned int id, unsigned int index);

/// How the members of a family are written: "gain[0..3][0..2]".
std::string familyName(const Family& family);

/// What the controls of a family may be set to: "-100 or -60..12 dB".
std::string allowedValues(const Family& family);

/// All members of a family, in the order of their subscripts.
std::vector<Address> members(const Family& family);

/// Reads the whole of `text` as a value of a control of `type` into the value buffer `buf`: an
/// integer, "on" or "off", or a text, which loses one pair of double quotes round it. False when
/// it is none.
bool parseValue(const char* text, CTRL_DATA_TYPE type, std::vector<char>& buf);

/// Reads the present value of a control through the registry and writes it as text. False when the
/// registry knows no such control.
bool readValue(const Address& control, std::string& value);

/// The confirmed value of a control that the preset file holds; false for any other.
bool confirmedValue(const Address& control, std::string& value);

/// The names of all controls that begin with `word`.
std::vector<std::string> completeControl(const std::string& word);

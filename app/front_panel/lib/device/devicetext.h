// Values and names as text: how people and files address a control and write its value.
//
//   const char* at = "gain[2][1] = -6 dB";
//   device::LineOf<200> line;
//   device::Selection found;
//   if (device::parseControls(panel, at, found, line)) ...       // `at` stands behind the ]
//   if (device::setText(panel, gain, "-6 dB", line)) line.text();  // else the reason
//
// A control is addressed by its family's name and its subscripts, `gain[2][1]` or `gain 2 1`, or by
// the numbers of the registry, `20:258`. Nothing allocates: what is written goes to a Line, and is
// cut where it ends. Threads as in devicetable.h; nothing stops the process.
#pragma once

#include "devicetable.h"

namespace device {

/// A text that is put together in memory of fixed size.
class Line {
 public:
  Line(const Line&) = delete;  ///< it points into itself
  Line& operator=(const Line&) = delete;

  /// What was put there, zero-terminated.
  const char* text() const { return start; }
  /// Characters of it.
  std::size_t length() const { return used; }
  /// Empties it.
  Line& clear();
  Line& put(const char* text);                      ///< adds a text
  Line& put(const char* text, std::size_t length);  ///< adds `length` characters
  Line& put(char c);                                ///< adds a character
  Line& put(int number);                            ///< adds a number, decimal
  Line& put(unsigned int number);                   ///< adds a number, decimal

 protected:
  Line(char* memory, std::size_t bytes) : start(memory), size(bytes) {}
  ~Line() = default;

 private:
  char* const start;
  const std::size_t size;
  std::size_t used = 0;
};

/// A line of at most `SIZE` - 1 characters.
template <std::size_t SIZE>
class LineOf : public Line {
 public:
  LineOf() : Line(memory, SIZE) { clear(); }

 private:
  char memory[SIZE];
};

/// Members of one family that stand together.
struct Selection {
  const Family* family = nullptr;                                        ///< null for none
  unsigned int first = 0;                                                ///< the first member
  unsigned int count = 0;                                                ///< members
  Control control(unsigned int i) const { return {family, first + i}; }  ///< the i-th one
};

/// Moves `text` behind the blanks in front.
void skipBlanks(const char*& text);

/// Reads the number at `text`, decimal or with 0x in front hexadecimal, a sign in front allowed,
/// and moves `text` behind it. False, with `text` unmoved, when there is none or it is out of
/// range.
bool parseNumber(const char*& text, int& number);
/// The same without a sign.
bool parseNumber(const char*& text, unsigned int& number);

/// Reads a control from the front of `text`, or all members of a family that fit the subscripts
/// given: `gain 2` is gain[2][0], gain[2][1], gain[2][2]. Moves `text` behind what it read. False
/// when there is no such control; `why` then says so.
bool parseControls(const Controls& device, const char*& text, Selection& found, Line& why);
/// The same for exactly one control; less than all subscripts is refused.
bool parseControl(const Controls& device, const char*& text, Control& control, Line& why);

/// Writes the name of a control: gain[2][1].
void writeName(const Control& control, Line& line);
/// Writes how the members of a family are addressed: gain[0..3][0..2].
void writeFamily(const Family& family, Line& line);
/// Writes what a family may be set to: -100 or -60..12 dB.
void writeAllowed(const Family& family, Line& line);
/// What the controls of a family are, as a word: integer, boolean, choice, text, reading, command.
const char* kindName(Kind kind);
/// The `i`-th of the names that a value of the family can have, off and on for a boolean, by rising
/// value; null behind the last, and for numbers and texts.
const char* valueName(const Family& family, unsigned int i);
/// Writes the unit with a blank in front, or nothing.
void writeUnit(const Family& family, Line& line);
/// Writes a number as a value of the family: -6, on, stereo. Without the unit.
void writeNumber(const Family& family, int value, Line& line);
/// Writes the present value: -6, on, stereo, "Stage left". Without the unit.
void writeValue(const Controls& device, const Control& control, Line& line);
/// Writes the confirmed value of a setting; false, with nothing written, for any other.
bool writeConfirmed(const Control& control, Line& line);

/// Sets a control from text: a number with or without its unit, on, off, yes, no, true, false, the
/// name of a value, or a text, which loses one pair of double quotes round it. False when it is
/// refused; `why` then says what is allowed. A true result waits for confirm.
bool setText(Controls& device, const Control& control, const char* text, Line& why);
/// Sets a number control by a step from its present value; past the ends it does what the family's
/// overflow policy says. False and `why` as setText.
bool step(Controls& device, const Control& control, int delta, Line& why);

}  // namespace device

// What every archive of the eternity layer shares: its direction, and its exception.
//
// The layer writes named values to a file and finds them again by name. persist_xml.h holds the
// archive that the preset file uses, xmlscanner.h its parser, dynamic.h the parsed elements. The
// layer owns what it reads and frees it with the archive; it starts no thread and takes no lock,
// and one archive belongs to one thread at a time. Nothing here stops the process: every failure
// is an eternity::exception, thrown by value unless a declaration says otherwise.
#pragma once

#include <exception>
#include <string>

namespace eternity {

/// A failure of this layer, with a text for a person.
class exception : public std::exception {
 public:
  /// A failure with this text.
  exception(const std::string& text) : m_text(text) {}
  /// Takes the text of `other.what()`, also when a derived class has its own.
  exception(const exception& other) : std::exception(other), m_text(other.what()) {}
  /// Takes the text that `other` was made with.
  exception& operator=(const exception& other) = default;
  ~exception() override = default;

  /// The text; valid as long as the exception.
  const char* what() const noexcept override { return m_text.c_str(); }

 private:
  std::string m_text;
};

/// A file that cannot be opened or read at this moment, which says nothing of what it holds.
class unreadable : public exception {
 public:
  using exception::exception;
};

/// The direction of an archive. A class below decides what it reads and writes.
class archive {
 public:
  /// The two directions.
  enum opening_mode {
    load = 0,   ///< values go from the file to the program
    store = 1,  ///< values go from the program to the file
  };

  /// True when values go to the program. An archive that is new or finished counts as loading.
  bool is_loading() const { return m_bloading; }

 protected:
  bool m_bloading = true;  ///< what is_loading returns
};

/// An archive of plain bytes. It has a direction and, as yet, no operation that transfers.
class bin_archive : public archive {
 public:
  /// An archive of this direction.
  explicit bin_archive(opening_mode mode = load) { m_bloading = mode == load; }
};

}  // namespace eternity

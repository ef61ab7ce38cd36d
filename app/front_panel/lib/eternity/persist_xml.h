// The XML archive: named values in a file of one root element with one child per value.
//
// Use: open(), then write() or read() once per value, then done(); an archive is reused for the
// next file. A file is written in place, element by element, and is complete with done(); a writer
// that must not lose the old file writes to another name and renames (filereplace.h does that).
//
// The archive owns its file and what it has parsed. One archive belongs to one thread at a time.
// Failures are eternity::exception by value, but for done(); nothing stops the process.
#pragma once

#include <cstddef>
#include <fstream>
#include <string>
#include <vector>

#include "persist.h"
#include "xmlscanner.h"

namespace eternity {

/// An archive in a file of XML. Its root element is "archive"; a child of it is a value.
class xml_archive : public archive {
 public:
  /// No file is larger, in bytes: one that is, is neither read nor written. What is parsed of a
  /// file takes about as much memory again, or for each element two views, whichever is more.
  static constexpr std::size_t LARGEST = 16 << 20;

  /// A finished archive: no file, and loading.
  xml_archive();
  xml_archive(const xml_archive&) = delete;
  xml_archive& operator=(const xml_archive&) = delete;
  /// Finishes the archive as done() does, without its exception; a file open for storing gets its
  /// "</archive>". The thread is not cancelled meanwhile.
  ~xml_archive();

  /// `load`: reads and parses the whole file. `store`: creates the file or cuts it to nothing, and
  /// writes its start. An archive that is still open is finished first. Throws, with the archive
  /// finished: `unreadable` when the file to load cannot be opened or read or is no regular file;
  /// another exception when it is damaged, cut off or too large, or cannot be created.
  void open(const std::string& name, opening_mode mode);

  /// Gives the `index`-th element, from 0, of the name `key` as a number: a whole signed 32-bit
  /// decimal number, with white space round it ignored. Throws, with `value` as it was, when
  /// there is no such element or no such number, or when no file is open for loading.
  void read(const std::string& key, int& value, int index);

  /// The same as text, with every byte of it kept. Throws, with `value` as it was, when there is no
  /// such element, or when no file is open for loading.
  void read(const std::string& key, std::string& value, int index);

  /// Writes one element and flushes. `T` is int, or char* for a zero-terminated text (null is
  /// empty); any other does not compile. Throws, with nothing written, when no file is open for
  /// storing, when `key` would not be read back as the name of an element (isElementName), and when
  /// the file would become too large. A write that the system does not take shows in failed().
  template <class T>
  void write(const std::string& key, T value) = delete;

  /// Writes the indentation of the present depth, a tab per level; the children of the root are
  /// at depth 0, and the depth stays 0 without branches.
  void formatting();

  /// Finishes the archive: writes "</archive>" to a file open for storing and closes it, frees
  /// what was parsed. Harmless on a finished archive. Throws an eternity::exception* made with
  /// new, the archive being finished, when a branch is still open.
  void done();

  /// True when the system has not taken everything that was written since the last open for
  /// storing, as on a full disk. Complete only behind done(): closing a file can fail too.
  bool failed() const { return m_oOut.fail(); }

 protected:
  xml_scanner m_oParser;                ///< holds what was parsed
  std::ofstream m_oOut;                 ///< the file, open for storing
  std::vector<node*> m_dBranches;       ///< the elements entered below the root
  std::vector<void*> m_vPointerstored;  ///< the objects stored so far, where links are stored
  int m_nTab = 0;                       ///< the depth, in tabs
  node* m_pCurElement = nullptr;        ///< where read looks, when loading

 private:
  void finish();
  std::string text(const std::string& key, int index) const;
  void put(const std::string& key, const std::string& value);

  std::size_t m_size = 0;  // of the file that is being stored, with its end
};

/// As declared in the class.
template <>
void xml_archive::write<int>(const std::string& key, int value);
/// As declared in the class.
template <>
void xml_archive::write<char*>(const std::string& key, char* value);

}  // namespace eternity

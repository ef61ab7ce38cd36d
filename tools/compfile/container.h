// A component file in memory, for the command-line tool: made from files, or taken apart.
//
// Everything here works on bytes in memory; reading and writing files is the caller's. A file that
// is taken apart may come from anywhere: no byte behind its end is read.
#pragma once

#include <string>
#include <vector>

#include "comp.h"

/// A file that goes into a component file.
struct Member {
  std::string name;
  std::string data;
};

/// What the component header says, as texts and numbers.
struct Identity {
  std::string product;
  std::string component;
  std::string location;
  unsigned int majorRev = 0;
  unsigned int minorRev = 0;
  std::string revision;
  std::string date;
};

/// Says why `name` cannot be the name of a file in a component file, or returns null: it has to
/// fit, be printable, and lead to a place below a directory.
const char* nameProblem(const std::string& name);

/// Says why a component file cannot be made of these, or returns an empty text.
std::string buildProblem(const Identity& identity, const std::vector<Member>& members,
                         const std::string& tag);

/// The bytes of a component file with these files, each with the tag text `tag`.
/// REQUIRES: buildProblem has found none.
std::string build(const Identity& identity, const std::vector<Member>& members,
                  const std::string& tag);

/// A file found in a component file.
struct Found {
  std::string name;
  std::string tag;
  unsigned int crc;  ///< as stored
  bool headerSound;  ///< if not, the other fields mean nothing, and nothing was found behind it
  bool sound;        ///< the data are there and have their CRC
  std::string data;
};

/// A component file taken apart, as far as its headers lead.
struct Contents {
  bool headerSound;    ///< if not, nothing else means anything
  Identity identity;   ///< from the header
  unsigned int count;  ///< files that the header promises
  std::vector<Found> files;
  std::size_t trailing;  ///< bytes behind the last file
};

/// Takes the component file `bytes` apart. Prints nothing.
Contents takeApart(const std::string& bytes);

// Files for the command-line tool: read, gathered, written without overwriting by accident.
//
// Every operation that fails throws Refused, or what replaces a file its own exception; the text
// tells a person why, and the tool's main catches it.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "container.h"

/// Why the tool does not do what it was asked.
class Refused : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// The bytes of the file at `path`.
std::string readFile(const std::string& path);

/// The files at `paths`, each under its path as given, read from below `base` unless that is empty.
/// A path that is absolute or climbs is refused.
std::vector<Member> gatherFiles(const std::vector<std::string>& paths, const std::string& base);

/// The files in and below the directory `dir` but the one at `but`, ordered by name, each under its
/// path from there. Anything that is neither a directory nor a plain file is refused.
std::vector<Member> gatherDirectory(const std::string& dir, const std::string& but);

/// Refuses when something is at `path` that must not be overwritten: anything, or with `replace`
/// all but a plain file or a link.
void checkTarget(const std::string& path, bool replace);

/// Refuses when writing below `dir` to `name` would lead through something that is there and is no
/// directory of its own, such as a symbolic link.
void checkWay(const std::string& dir, const std::string& name);

/// Writes a file whole. With `replace` it takes the place of the one that is there once it is
/// complete, with its owner and mode, and a link stays a link to it; without, it is never written
/// over one. What fails leaves nothing behind.
void writeFile(const std::string& path, const std::string& bytes, bool replace);

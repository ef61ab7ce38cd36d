// Replaces a file so that it is complete at every moment: all old or all new.
//
// The new content goes to a temporary file beside the old one and is flushed to the disk before it
// takes the old one's name, so neither a full disk nor a power cut nor a killed process leaves a
// part of it under that name. A symbolic link stays a link: the file behind it is replaced.
//
// One replacement of a file at a time; any thread. Failures are eternity::exception by value; a
// second commit stops the process. A thread that may be cancelled holds that off while it uses
// these functions, or a file descriptor can stay open.
#pragma once

#include <string>

#include "debug.h"
#include "noncopyable.h"

/// One replacement:
///
///   FileReplacement file("presets.xml");
///   ... write file.temporary(), close it, check that every write was taken ...
///   file.commit();
class FileReplacement : public Noncopyable {
 public:
  /// Prepares to replace or create the file `name`: makes an empty temporary file in place of what
  /// an earlier replacement left behind. While it is written, only its owner may read what takes
  /// the place of an old file. Throws when something other than a regular file has that name, or
  /// the temporary file cannot be made.
  explicit FileReplacement(const std::string& name);

  /// Removes the temporary file unless commit() has renamed it.
  ~FileReplacement();

  /// The name under which the caller writes the new content: that of the file with ".tmp" behind.
  const std::string& temporary() const { return temp; }

  /// Gives the temporary file, which the caller has written and closed, the owner and mode of the
  /// old one, flushes it to the disk, renames it and flushes the directory. Throws when any step
  /// but the owner fails; the file then is complete all the same, old or new.
  /// REQUIRES: it has not renamed the file already.
  void commit();

 private:
  const StreamGuard streams;  // nothing printed goes into the new content
  const std::string target;
  const std::string temp;
  bool renamed = false;
};

/// Moves the regular file `name` aside, to the first free of the names `name`.damaged-1 to
/// `name`.damaged-9 beside it; when all are taken, the newest kept one is given up, so the
/// earliest are never lost. Returns the new name, or an empty text when there is no such regular
/// file. Throws when it cannot be looked at or renamed.
std::string keepAside(const std::string& name);

// Replaces a file so that it is complete at every moment: all old or all new.
//
// The new content goes to a temporary file beside the old one and is flushed to the disk before it
// takes the old one's name, so neither a full disk nor a power cut nor a killed process leaves a
// part of it under that name. A symbolic link stays a link: the file behind it is replaced. Of
// several replacements at once, in any processes, each is whole and the last one stays; a FileLock
// keeps a file for one process.
//
// Any thread. Failures are eternity::exception by value; a second commit stops the process. A
// thread that may be cancelled holds that off while it uses these functions, or a file descriptor
// can stay open.
#pragma once

#include <sys/types.h>

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
  /// Prepares to replace or create the file `name`: makes an empty temporary file, to which nobody
  /// has access who has none to an old file. Throws when something other than a regular file has
  /// that name, or the temporary file cannot be made.
  ///
  /// `alone` promises that no other replacement of this file is under way: the temporary file then
  /// is `name`.tmp, in the place of what a killed process left there. Otherwise it is the first
  /// free of `name`.tmp-1, `name`.tmp-2 and so on, and meets no file that is there.
  explicit FileReplacement(const std::string& name, bool alone = false);

  /// Removes the temporary file unless commit() has renamed it.
  ~FileReplacement();

  /// The name under which the caller writes the new content.
  const std::string& temporary() const { return temp; }

  /// The temporary file, open for writing until this object ends, for a caller who rather has that.
  int descriptor() const { return fd; }

  /// Gives the temporary file, which the caller has written, the owner and mode of the old one,
  /// flushes it to the disk, renames it and flushes the directory. An owner or mode that the system
  /// refuses is let go. Throws when any other step fails; the file then is complete all the same,
  /// old or new.
  ///
  /// With `keepAs` the old file is kept aside as keepAside(name, keepAs) would do it, but no sooner
  /// than the new one is on the disk. Returns the name that the old one has been kept under, or an
  /// empty text.
  /// REQUIRES: it has not renamed the file already.
  std::string commit(const char* keepAs = nullptr);

 private:
  const StreamGuard streams;  // nothing printed goes into the new content
  const std::string target;
  std::string temp;
  int fd = -1;
  bool renamed = false;
};

/// Keeps a file for this process, among all that ask for it in this way.
class FileLock : public Noncopyable {
 public:
  /// Nothing is locked yet.
  FileLock() = default;
  /// Gives the file back, as the end of the process does.
  ~FileLock();

  /// Locks the file `name`, or finds that this object has it locked. Throws when another process
  /// has. False when nobody can tell, because the file system has no locks or the lock cannot be
  /// made. The lock is one on the empty file `name`.lock, which is made and stays. One thread at a
  /// time.
  bool take(const std::string& name);

 private:
  bool holds(const std::string& path) const;
  void giveBack();

  int fd = -1;
  pid_t owner = 0;  // a child has the descriptor as well, but not the lock to itself
};

/// Moves the regular file `name` aside, to `name`.`state`-1 or the next number, up to 9. When all
/// are taken, the second is given up and the others move down: the first and the latest are kept.
/// Returns the new name, or an empty text when there is no such regular file. Throws when it cannot
/// be looked at or renamed.
std::string keepAside(const std::string& name, const char* state = "damaged");

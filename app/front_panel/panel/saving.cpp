#include "saving.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <filesystem>

#include "console.h"
#include "device.h"
#include "filereplace.h"

namespace {

// Two panels in one directory would overwrite each other's settings. The lock is on the directory
// itself, and ends with the process; a file system without locks is taken as it is, and so is a
// directory that may not be read.
bool lockDirectory() {
  const int fd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return fd < 0 || flock(fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

// The copy function of the preset thread: keeps the saved file once more, in case that the one in
// use is lost. To go back to it, end the panel and copy it over presets.xml.
void backUpPresets() {
  try {
    FileReplacement copy(Preset::s_file_name + ".bak", true);  // the directory is this panel's
    std::filesystem::copy_file(Preset::s_file_name, copy.temporary(),
                               std::filesystem::copy_options::overwrite_existing);
    copy.commit();
  } catch (const std::exception& e) {
    complain("no backup of %s: %s", Preset::s_file_name.c_str(), e.what());
  }
}

}  // namespace

bool openSettings(std::string& why) {
  if (!lockDirectory()) {
    why = "another panel keeps its files here";
    return false;
  }
  try {
    xmlFile.restore(backUpPresets);
    return true;
  } catch (const std::exception& e) {
    why = e.what();
  } catch (eternity::exception* e) {
    why = e->what();
    delete e;
  }
  return false;
}

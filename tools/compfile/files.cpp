#include "files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "filereplace.h"

namespace fs = std::filesystem;

namespace {

[[noreturn]] void failed(const std::string& path) {
  throw Refused(path + ": " + std::strerror(errno));
}

bool writeAll(int fd, const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno != EINTR) {
      return false;
    }
    done += n > 0 ? static_cast<std::size_t>(n) : 0;
  }
  return true;
}

// Writes all bytes to a new file, and to the disk.
bool writeNew(const std::string& path, const std::string& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (fd < 0) {
    return false;
  }
  const bool good = writeAll(fd, bytes) && fsync(fd) == 0;
  if (close(fd) != 0 || !good) {
    const int code = errno;
    unlink(path.c_str());
    errno = code;
    return false;
  }
  return true;
}

// The path as a name in a component file: without the parts that lead nowhere.
std::string nameOf(const std::string& path) {
  std::string name;
  for (const fs::path& part : fs::path(path)) {
    if (part != ".") {
      name += (name.empty() || name == "/" ? "" : "/") + part.string();
    }
  }
  return name;
}

}  // namespace

std::string readFile(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) {
    throw Refused(path + " is a directory");
  }
  std::ifstream file(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file) {
    failed(path);
  }
  return bytes;
}

std::vector<Member> gatherFiles(const std::vector<std::string>& paths, const std::string& base) {
  std::vector<Member> members;
  for (const std::string& path : paths) {
    const std::string name = nameOf(path);
    if (const char* const problem = nameProblem(name)) {
      throw Refused("the name \"" + path + "\" " + problem +
                    "; with --base DIR files are named from DIR on");
    }
    members.push_back({name, readFile(base.empty() ? path : (fs::path(base) / path).string())});
  }
  return members;
}

std::vector<Member> gatherDirectory(const std::string& dir, const std::string& but) {
  std::vector<Member> members;
  std::error_code none;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(dir)) {
    const fs::file_type type = entry.symlink_status().type();
    if (type == fs::file_type::directory || fs::equivalent(entry.path(), but, none)) {
      continue;
    }
    if (type != fs::file_type::regular) {
      throw Refused(entry.path().string() + " is no plain file");
    }
    members.push_back(
        {entry.path().lexically_relative(dir).generic_string(), readFile(entry.path().string())});
  }
  if (members.empty()) {
    throw Refused("there is no file in " + dir);
  }
  std::sort(members.begin(), members.end(),
            [](const Member& a, const Member& b) { return a.name < b.name; });
  return members;
}

void checkTarget(const std::string& path, bool replace) {
  const fs::file_type type = fs::symlink_status(path).type();
  if (type == fs::file_type::not_found) {
    return;
  }
  if (!replace) {
    throw Refused(path + " is there already; --force overwrites it");
  }
  if (type != fs::file_type::regular && type != fs::file_type::symlink) {
    throw Refused(path + " is there and is no plain file");
  }
}

void checkWay(const std::string& dir, const std::string& name) {
  fs::path way(dir);
  for (const fs::path& part : fs::path(name).parent_path()) {
    way /= part;
    const fs::file_type type = fs::symlink_status(way).type();
    if (type != fs::file_type::not_found && type != fs::file_type::directory) {
      throw Refused("the name \"" + name + "\" leads through " + way.string() +
                    ", which is no directory");
    }
  }
}

void writeFile(const std::string& path, const std::string& bytes, bool replace) {
  if (!replace) {
    if (!writeNew(path, bytes)) {
      failed(path);
    }
    return;
  }
  FileReplacement file(path);
  if (!writeAll(file.descriptor(), bytes)) {
    failed(path);
  }
  file.commit();
}

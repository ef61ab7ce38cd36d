#include "board_services.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "comp.h"
#include "console.h"
#include "env.h"
#include "id.h"

namespace {

namespace fs = std::filesystem;

const char IDENTITY_FILE[] = "board.env";
bool identityFile = false;

bool id(const char*) {
  unsigned char number[SER_NUM_LENGTH];
  unsigned int length = sizeof number;
  getSerNum(number, length);
  char revision[16];
  unsigned int buildNumber;
  const bool known = getBoardRev(revision, sizeof revision, buildNumber);
  say("serial number  %02X%02X%02X%02X%02X", unsigned{number[0]}, unsigned{number[1]},
      unsigned{number[2]}, unsigned{number[3]}, unsigned{number[4]});
  say("board          revision %s, build %u%s", revision, buildNumber, known ? "" : " (default)");
  if (!identityFile) {
    say("There was no %s here at the start; it holds SN=, BRDREV= and BRDBLD=.", IDENTITY_FILE);
  }
  return true;
}

// A text field of a header, whatever is in it.
template <std::size_t SIZE>
std::string shown(const char (&field)[SIZE]) {
  std::string text(field, strnlen(field, SIZE));
  for (char& c : text) {
    c = c >= ' ' && c <= '~' ? c : '?';
  }
  return text;
}

bool component(const char* path) {
  if (*path == 0) {
    return complain("component takes the path of a component file");
  }
  std::error_code error;
  if (fs::exists(path, error) && !fs::is_regular_file(path, error)) {
    return complain("%s is no file", path);
  }
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file) {
    return complain("%s: %s", path, std::strerror(errno));
  }
  if (validate_bin_file(bytes.data(), bytes.size()) != 1) {
    return complain("%s is not valid", path);
  }
  component_t header;
  std::memcpy(&header, bytes.data(), sizeof header);
  say("%s is valid: %s, %s, revision %u.%u (%s), %u %s", path, shown(header.product_id).c_str(),
      shown(header.component_id).c_str(), unsigned{header.major_rev}, unsigned{header.minor_rev},
      shown(header.rev_string).c_str(), unsigned{header.num_subcomps},
      header.num_subcomps == 1 ? "file" : "files");
  return true;
}

// A path may hold blanks; what stands in front of the last one is typed already.
std::vector<std::string> completePath(const std::string& args) {
  const std::string dir = args.substr(0, args.find_last_of('/') + 1);
  const std::size_t typed = args.find_last_of(" \t") + 1;
  std::vector<std::string> found;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(dir.empty() ? "." : dir, error)) {
    const std::string path = dir + entry.path().filename().string();
    if (path.compare(0, args.size(), args) == 0) {
      found.push_back(path.substr(typed) + (entry.is_directory(error) ? "/" : ""));
    }
  }
  return found;
}

}  // namespace

const Command BOARD_COMMANDS[] = {
    {"id", "", "serial number and revision of the board", id, nullptr},
    {"component", "PATH", "checks a component file", component, completePath},
    {}};

void boardStart() {
  identityFile = env_use_file(IDENTITY_FILE) == 0;
}

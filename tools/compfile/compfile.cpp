// compfile: makes component files, checks them, shows what is in them, and takes files out.
//
// Whether a file is valid is the library's judgement, with the library's messages; in addition
// nothing may stand behind the last file. No command overwrites a file unless it is told to.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "comp.h"
#include "container.h"
#include "debug.h"
#include "files.h"
#include "printable.h"
#include "sio.h"

namespace {

namespace fs = std::filesystem;

enum { EXIT_VALID = 0, EXIT_DAMAGED = 1, EXIT_REFUSED = 2 };

struct Options {
  std::string file;
  std::vector<std::string> inputs;
  Identity identity;
  std::string base;
  std::string number;
  std::string tag;
  std::string to = ".";
  bool force = false;
};

// Says why something is not done, behind what was printed before. The text may hold names of any
// bytes.
int refused(const std::exception& error) {
  std::fflush(stdout);
  std::fprintf(stderr, "compfile: %s\n", printable(error.what()).c_str());
  return EXIT_REFUSED;
}

// The creation date when none is given: now, or the time at which a reproducible build sets it.
std::string defaultDate() {
  const char* const epoch = std::getenv("SOURCE_DATE_EPOCH");
  std::time_t when = std::time(nullptr);
  bool good = true;
  if (epoch != nullptr) {
    const char* const end = epoch + std::strlen(epoch);
    const std::from_chars_result read = std::from_chars(epoch, end, when);
    good = read.ec == std::errc() && read.ptr == end;
  }
  std::tm utc{};
  char text[32] = "";
  if (!good || gmtime_r(&when, &utc) == nullptr ||
      std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc) == 0) {
    throw Refused("SOURCE_DATE_EPOCH is no number of seconds since 1970");
  }
  return text;
}

void parseRevision(const std::string& number, Identity& identity) {
  char behind;
  if (std::sscanf(number.c_str(), "%3u.%3u%c", &identity.majorRev, &identity.minorRev, &behind) !=
          2 ||
      number.find_first_not_of("0123456789.") != std::string::npos || identity.majorRev > 255 ||
      identity.minorRev > 255) {
    throw Refused("the revision \"" + number + "\" is not MAJOR.MINOR, each 0 to 255");
  }
}

int create(Options& options) {
  Identity& identity = options.identity;
  parseRevision(options.number, identity);
  if (identity.revision.empty()) {
    identity.revision = options.number;
  }
  if (identity.date.empty()) {
    identity.date = defaultDate();
  }
  checkTarget(options.file, options.force);
  const bool directory = options.inputs.size() == 1 && options.base.empty() &&
                         fs::is_directory(options.inputs.front());
  const std::vector<Member> members = directory
                                          ? gatherDirectory(options.inputs.front(), options.file)
                                          : gatherFiles(options.inputs, options.base);
  const std::string problem = buildProblem(identity, members, options.tag);
  if (!problem.empty()) {
    throw Refused(problem);
  }
  const std::string bytes = build(identity, members, options.tag);
  if (validate_bin_file(bytes.data(), bytes.size()) != 1) {
    throw Refused("what was made is not valid and is not written");
  }
  writeFile(options.file, bytes, options.force);
  std::printf("%s: %zu %s, %zu bytes\n", printable(options.file).c_str(), members.size(),
              members.size() == 1 ? "file" : "files", bytes.size());
  return EXIT_VALID;
}

// Checks a file and prints what is wrong with it.
bool isValid(const std::string& bytes) {
  if (validate_bin_file(bytes.data(), bytes.size()) != 1) {
    return false;
  }
  const std::size_t trailing = takeApart(bytes).trailing;
  if (trailing != 0) {
    std::printf("%zu bytes stand behind the last file.\n", trailing);
  }
  return trailing == 0;
}

int verify(Options& options) {
  int status = EXIT_VALID;
  for (const std::string& path : options.inputs) {
    int result;
    try {
      const bool valid = isValid(readFile(path));
      std::printf("%s: %s\n", printable(path).c_str(), valid ? "valid" : "not valid");
      result = valid ? EXIT_VALID : EXIT_DAMAGED;
    } catch (const std::exception& error) {  // the files behind it are checked all the same
      result = refused(error);
    }
    status = std::max(status, result);
  }
  return status;
}

int list(Options& options) {
  const std::string bytes = readFile(options.file);
  const Contents contents = takeApart(bytes);
  if (!contents.headerSound) {
    return isValid(bytes) ? EXIT_VALID : EXIT_DAMAGED;
  }
  const Identity& identity = contents.identity;
  std::printf("product    %s\ncomponent  %s\nlocation   %s\nrevision   %u.%u (%s)\ndate       %s\n",
              printable(identity.product).c_str(), printable(identity.component).c_str(),
              printable(identity.location).c_str(), identity.majorRev, identity.minorRev,
              printable(identity.revision).c_str(), printable(identity.date).c_str());
  std::printf("files      %u\n", contents.count);
  for (const Found& found : contents.files) {
    if (found.headerSound) {
      std::printf("%10zu  $%04x  %-7s  %s%s\n", found.data.size(), found.crc,
                  found.sound ? "ok" : "damaged", printable(found.name).c_str(),
                  found.tag.empty() ? "" : ("  [" + printable(found.tag) + "]").c_str());
    }
  }
  return isValid(bytes) ? EXIT_VALID : EXIT_DAMAGED;
}

// The files to be taken out: all, or those asked for.
std::vector<Found> choose(const Contents& contents, const std::vector<std::string>& names) {
  if (names.empty()) {
    return contents.files;
  }
  std::vector<Found> chosen;
  for (const std::string& name : names) {
    const std::size_t before = chosen.size();
    for (const Found& found : contents.files) {
      if (found.name == name) {
        chosen.push_back(found);
      }
    }
    if (chosen.size() == before) {
      throw Refused("there is no file \"" + name + "\"");
    }
  }
  return chosen;
}

// Refuses names under which the files cannot be put below the directory side by side.
void checkNames(const std::vector<Found>& files, const Options& options) {
  std::set<std::string> names;
  for (const Found& found : files) {
    const std::string shown = "the name \"" + found.name + "\" ";
    if (const char* const problem = nameProblem(found.name)) {
      throw Refused(shown + problem);
    }
    if (!names.insert(found.name).second) {
      throw Refused(shown + "is there twice");
    }
    checkWay(options.to, found.name);
    checkTarget((fs::path(options.to) / found.name).string(), options.force);
  }
  for (const std::string& name : names) {
    for (fs::path way = fs::path(name).parent_path(); !way.empty(); way = way.parent_path()) {
      if (names.count(way.string()) != 0) {
        throw Refused("the name \"" + way.string() + "\" is a file's and a directory's");
      }
    }
  }
}

int extract(Options& options) {
  const std::string bytes = readFile(options.file);
  if (!isValid(bytes)) {
    std::printf("%s: not valid, nothing is extracted\n", printable(options.file).c_str());
    return EXIT_DAMAGED;
  }
  const std::vector<Found> files = choose(takeApart(bytes), options.inputs);
  checkNames(files, options);
  for (const Found& found : files) {
    const fs::path path = fs::path(options.to) / found.name;
    fs::create_directories(path.parent_path());
    writeFile(path.string(), found.data, options.force);
    std::printf("%s: %zu bytes\n", printable(path.string()).c_str(), found.data.size());
  }
  return EXIT_VALID;
}

CLI::App* addCommand(CLI::App& app, Options& options, int (*command)(Options&), const char* name,
                     const char* help, int (*&chosen)(Options&)) {
  CLI::App* const sub = app.add_subcommand(name, help);
  sub->callback([command, &chosen] { chosen = command; });
  if (command != verify) {
    sub->add_option("file", options.file, "the component file")->required();
  }
  return sub;
}

int run(int argc, char** argv) {
  Options options;
  int (*command)(Options&) = nullptr;
  CLI::App app("Makes component files, checks them, and takes files out of them.", "compfile");
  app.set_version_flag("--version", TOOL_VERSION);
  app.set_help_all_flag("--help-all", "print the help of all subcommands");
  app.require_subcommand(1);
  app.footer(
      "Exit status: 0, or 1 when a component file is not valid, or 2 when a command is "
      "refused, a file cannot be read, or the output cannot be written.");

  CLI::App* sub = addCommand(app, options, create, "create", "make a component file", command);
  sub->add_option("input", options.inputs, "a directory, or files to go in under their paths")
      ->required();
  sub->add_option("--product", options.identity.product, "product identification, to 30 characters")
      ->required();
  sub->add_option("--component", options.identity.component,
                  "component identification, to 30 characters")
      ->required();
  sub->add_option("--location", options.identity.location, "location, to 5 characters");
  sub->add_option("--revision", options.number, "MAJOR.MINOR, each 0 to 255")->required();
  sub->add_option("--revision-text", options.identity.revision,
                  "revision text, to 10 characters; otherwise MAJOR.MINOR");
  sub->add_option("--date", options.identity.date,
                  "creation date, to 25 characters; otherwise now, or SOURCE_DATE_EPOCH");
  sub->add_option("--tag", options.tag, "tag text of every file, to 51 characters");
  sub->add_option("--base", options.base, "the directory that the files' paths begin at");
  sub->add_flag("--force", options.force, "overwrite the component file");

  sub = addCommand(app, options, verify, "verify", "check component files", command);
  sub->add_option("file", options.inputs, "component files")->required();

  addCommand(app, options, list, "list", "show what is in a component file", command);

  sub = addCommand(app, options, extract, "extract", "take files out", command);
  sub->add_option("name", options.inputs, "the files to take; otherwise all");
  sub->add_option("--to", options.to, "the directory to put them in; otherwise this one");
  sub->add_flag("--force", options.force, "overwrite files");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_VALID : EXIT_REFUSED;
  }
  return command(options);
}

}  // namespace

int main(int argc, char** argv) {
  const StreamGuard streams;
  try {
    const int status = run(argc, argv);
    if (!sio_flush(0)) {
      throw Refused("cannot write the output");
    }
    return status;
  } catch (const std::exception& error) {  // Refused, or the file system's own
    return refused(error);
  }
}

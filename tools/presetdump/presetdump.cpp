// presetdump: shows the content of preset store files and says what is wrong with damaged ones.
//
// A file is judged as the store's start-up scan judges it, by the same decoder. It is only read,
// and needs no lock: a store that is running may be looked at.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "pfmedium.h"
#include "presetview.h"
#include "printable.h"
#include "sio.h"

namespace {

enum { EXIT_SOUND = 0, EXIT_DAMAGED = 1, EXIT_UNUSABLE = 2 };

constexpr unsigned int BYTES_PER_LINE = 16;
constexpr unsigned int BYTES_SHOWN_AT_END = 64;

struct Options {
  bool map = false;
  bool check = false;
  std::vector<std::string> files;
};

class FileWords : public PresetWords {
 public:
  unsigned short word(unsigned int addr) const override { return content.word(addr); }

  NorArray content;
};

std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string text(const char* format, ...) {
  char line[256];
  va_list args;
  va_start(args, format);
  std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  return line;
}

// What the store does not come up with as it was left, and how bad that is.
struct Findings {
  // A trace of a power cut that the store is made for; nothing is lost.
  void note(const std::string& line) { lines.push_back("Note: " + line); }
  // What no power cut explains, or what costs presets.
  void damage(const std::string& line) {
    lines.push_back("Damage: " + line);
    damaged = true;
  }

  std::vector<std::string> lines;
  bool damaged = false;
};

// The version by which the log of block `blk` can be read, also of one that is not valid; or -1.
int readableVersion(const presetBlkInfo_t& blk) {
  if (blk.version >= 0) {
    return blk.version;
  }
  switch (blk.word) {
    case BLK_WORD_VALID& BLK_MASK_INVALID:
    case BLK_WORD_COPIED:
    case REC_WORD_NONE:
      return 1;
    case BLK_WORD_VALID_VER0& BLK_MASK_INVALID:
      return 0;
    default:
      return -1;
  }
}

// What is to be said of a block that is neither valid nor erased.
void judgeUnused(const presetView_t& view, unsigned int blkid, Findings& findings) {
  const presetBlkInfo_t& blk = view.blk[blkid];
  const char* const rest = "the store erases it";
  switch (blk.word) {
    case BLK_WORD_VALID& BLK_MASK_INVALID:
    case BLK_WORD_VALID_VER0& BLK_MASK_INVALID:
      findings.note(text("block %u has been invalidated and not yet erased; %s.", blkid, rest));
      return;
    case BLK_WORD_COPIED:
      findings.note(
          text("block %u is a finished block copy that has not become valid; %s.", blkid, rest));
      return;
    case REC_WORD_NONE:
      findings.note(
          text("block %u was left in the middle of a block copy or of an erase; %s.", blkid, rest));
      return;
    default:
      break;
  }
  if (view.live >= 0) {
    findings.note(text("block %u starts with 0x%04X 0x%04X, as a cut-off erase may leave it; %s.",
                       blkid, blk.word, blk.verWord, rest));
  } else if (blk.word == BLK_WORD_VALID) {
    findings.damage(text("block %u has version word 0x%04X, which is no version known here; %s.",
                         blkid, blk.verWord, rest));
  } else {
    findings.damage(
        text("block %u starts with 0x%04X, which is no block word, and no other block is "
             "valid; %s.",
             blkid, blk.word, rest));
  }
}

void judgeLive(const presetView_t& view, unsigned int blkid, Findings& findings) {
  const presetBlkInfo_t& blk = view.blk[blkid];
  if (blk.last.state == REC_UNCONFIRMED) {
    findings.note(
        text("the record at 0x%04X was started and never confirmed; block %u counts as full.",
             blk.last.addr, blkid));
  } else if (blk.full) {
    findings.damage(
        text("the space behind the log of block %u is not erased at 0x%04X; "
             "the block counts as full.",
             blkid, blk.firstDirty));
  } else if (blk.firstDirty < getBlkAddr(blkid) + FLASH_PARM_BLK_SIZE) {
    findings.damage(
        text("the last word of block %u is not erased; the store does not use it.", blkid));
  }
  if (view.superseded > 0) {
    findings.note(
        text("records of block %u that are superseded and not marked deleted: %u; the store "
             "leaves them behind when it rewrites the block, before a removal of their id at the "
             "latest.",
             blkid, view.superseded));
  }
  if (blk.version == 0) {
    findings.note(text("block %u is of version 0; the store rewrites it in version 1.", blkid));
  }
}

Findings judge(const presetView_t& view) {
  Findings findings;
  for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
    const presetBlkInfo_t& blk = view.blk[blkid];
    switch (blk.view) {
      case BLKV_ERASED:
        break;
      case BLKV_LIVE:
        judgeLive(view, blkid, findings);
        break;
      case BLKV_OLD:
        findings.note(
            text("block %u is valid as well, as after a power cut at the end of a block copy; "
                 "the store takes block %u and erases this one.",
                 blkid, 1 - blkid));
        break;
      case BLKV_UNUSED:
        judgeUnused(view, blkid, findings);
        break;
      case BLKV_LOST:
        break;
    }
    if (blk.version >= 0 && blk.last.state == REC_CORRUPT) {
      findings.damage(
          text("the log of block %u is corrupt at 0x%04X: %s. The store gives the whole "
               "block up and erases it.",
               blkid, blk.last.addr, blk.last.fault));
    }
  }
  return findings;
}

// Shows `size` bytes from store address `addr`.
void printBytes(const PresetWords& words, unsigned int addr, unsigned int size) {
  for (unsigned int line = 0; line < size; line += BYTES_PER_LINE) {
    const unsigned int count = std::min(BYTES_PER_LINE, size - line);
    char text[BYTES_PER_LINE + 1] = "";
    std::printf("            ");
    for (unsigned int i = 0; i < count; ++i) {
      const unsigned int at = addr + line + i;
      const unsigned int word = words.word(at & ~1U);
      const unsigned int byte = at % 2 == 0 ? word >> 8 : word & 0xFF;
      std::printf("%02X ", byte);
      text[i] = byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
    }
    std::printf("%*s |%s|\n", static_cast<int>(3 * (BYTES_PER_LINE - count)), "", text);
  }
}

void printRecord(const PresetWords& words, const presetView_t& view, const presetRec_t& rec,
                 bool inLiveBlk) {
  const char* state = "deleted";
  if (rec.state == REC_LIVE) {
    state = inLiveBlk && view.record[rec.id] != rec.addr ? "superseded" : "live";
  }
  std::printf("  0x%04X    %-11s id %-3u  type %-5u size %u\n", rec.addr, state, rec.id, rec.type,
              rec.size);
  printBytes(words, rec.data, rec.size);
}

// What stands where the log ends, and the first bytes of it.
void printEnd(const PresetWords& words, const presetRec_t& rec, unsigned int end) {
  unsigned int from = rec.addr;
  if (rec.state == REC_CORRUPT) {
    std::printf("  0x%04X    corrupt: %s\n", rec.addr, rec.fault);
  } else if (rec.state == REC_UNCONFIRMED) {
    std::printf("  0x%04X    unconfirmed, head word 0x%04X\n", rec.addr, words.word(rec.addr));
  } else {
    from = presetFirstDirty(words, rec.addr, end);
    std::printf("  0x%04X    end of the log, %u bytes erased behind it\n", rec.addr,
                from - rec.addr);
    if (from < end) {
      std::printf("  0x%04X    dirty\n", from);
    }
  }
  unsigned int to = std::min(from + BYTES_SHOWN_AT_END, end);
  while (to > from && words.word(to - 2) == REC_WORD_NONE) {
    to -= 2;
  }
  printBytes(words, from, to - from);
}

void printBlk(const PresetWords& words, const presetView_t& view, unsigned int blkid) {
  static const char* const NAMES[] = {"erased", "live", "lost", "old", "not in use"};
  const presetBlkInfo_t& blk = view.blk[blkid];
  const int version = readableVersion(blk);
  std::printf("\nBlock %u at 0x%04X: %s", blkid, getBlkAddr(blkid), NAMES[blk.view]);
  if (blk.view == BLKV_ERASED) {
    std::printf("\n");
    return;
  }
  std::printf(", block word 0x%04X", blk.word);
  if (version < 0) {
    std::printf(", no log to be read\n");
    return;
  }
  std::printf(", version %d\n", version);
  const unsigned int ver = static_cast<unsigned int>(version);
  const unsigned int end = getBlkAddr(blkid) + FLASH_PARM_BLK_SIZE;
  presetRec_t rec = presetReadRec(words, presetLogStart(blkid, ver), end, ver);
  while (rec.state == REC_LIVE || rec.state == REC_DELETED) {
    printRecord(words, view, rec, blk.view == BLKV_LIVE);
    rec = presetReadRec(words, rec.next, end, ver);
  }
  printEnd(words, rec, end);
}

void printMap(const PresetWords& words, const presetView_t& view) {
  constexpr unsigned int CELLS_PER_LINE = 64;
  char map[PRESET_MAP_CELLS + 1];
  std::printf("\n%s; %u bytes a letter\n", presetMapLegend, PRESET_MAP_CELL_SIZE);
  for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
    presetMap(words, view, blkid, map);
    for (unsigned int i = 0; i < PRESET_MAP_CELLS; i += CELLS_PER_LINE) {
      std::printf("0x%04X  %.*s\n", getBlkAddr(blkid) + i * PRESET_MAP_CELL_SIZE,
                  static_cast<int>(CELLS_PER_LINE), map + i);
    }
  }
}

void printSummary(const presetView_t& view, const Findings& findings) {
  std::printf(
      "\nThe store comes up with %u preset%s, %u payload bytes; written compactly they fill "
      "%u of %u bytes.\n",
      view.presets, view.presets == 1 ? "" : "s", view.payload, view.compact, FLASH_PARM_BLK_SIZE);
  std::printf("A new preset has room for %u bytes.\n", presetRoom(view));
  for (const std::string& line : findings.lines) {
    std::printf("%s\n", line.c_str());
  }
  std::printf("%s\n", findings.damaged ? "Damaged." : "Sound.");
}

// Reads a store file; false, with a message, when it is none.
bool readFile(const std::string& path, NorArray& content) {
  std::FILE* const file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    std::fprintf(stderr, "presetdump: %s: %s\n", printable(path).c_str(), std::strerror(errno));
    return false;
  }
  unsigned char beyond;
  const std::size_t size = std::fread(content.bytes, 1, sizeof content.bytes, file);
  const bool longer = std::fread(&beyond, 1, 1, file) != 0;
  const bool failed = std::ferror(file) != 0;
  const int code = errno;
  std::fclose(file);
  if (failed) {
    std::fprintf(stderr, "presetdump: %s: %s\n", printable(path).c_str(), std::strerror(code));
  } else if (longer || size != sizeof content.bytes) {
    std::fprintf(stderr, "presetdump: %s has %s%zu bytes, and a store file has %zu\n",
                 printable(path).c_str(), longer ? "more than " : "", size, sizeof content.bytes);
  } else {
    return true;
  }
  return false;
}

int dump(const std::string& path, const Options& options) {
  FileWords words;
  if (!readFile(path, words.content)) {
    return EXIT_UNUSABLE;
  }
  const presetView_t view = presetView(words);
  const Findings findings = judge(view);
  std::printf("%s\n", printable(path).c_str());
  if (options.map) {
    printMap(words, view);
  } else if (!options.check) {
    for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
      printBlk(words, view, blkid);
    }
  }
  printSummary(view, findings);
  return options.check && findings.damaged ? EXIT_DAMAGED : EXIT_SOUND;
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app("Shows the content of preset store files and judges them as the store does.",
               "presetdump");
  app.set_version_flag("--version", TOOL_VERSION);
  app.add_flag("--map", options.map, "draw the use of each block instead of listing its records");
  app.add_flag("--check", options.check, "list no records, and exit with 1 when a file is damaged");
  app.add_option("file", options.files, "store files of 16384 bytes")->required();
  app.footer(
      "Exit status: 0, or 1 as --check says, or 2 when a file cannot be read or the output not "
      "written.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_SOUND : EXIT_UNUSABLE;
  }
  int status = EXIT_SOUND;
  for (const std::string& path : options.files) {
    status = std::max(status, dump(path, options));
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int status = run(argc, argv);
    if (!sio_flush(0)) {
      std::fputs("presetdump: cannot write the output\n", stderr);
      return EXIT_UNUSABLE;
    }
    return status;
  } catch (const std::exception& error) {  // out of memory; the rest is told where it happens
    std::fprintf(stderr, "presetdump: %s\n", error.what());
    return EXIT_UNUSABLE;
  }
}

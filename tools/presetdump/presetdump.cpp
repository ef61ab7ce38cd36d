// presetdump: shows the content of preset store files and says what is wrong with damaged ones.
//
// A file is judged as the store's start-up scan judges it, by the same decoder. It is only read,
// and needs no lock: a store that is running may be looked at.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
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

void printSummary(const presetView_t& view, const presetFindings_t& findings) {
  std::printf(
      "\nThe store comes up with %u preset%s, %u payload bytes; written compactly they fill "
      "%u of %u bytes.\n",
      view.presets, view.presets == 1 ? "" : "s", view.payload, view.compact, FLASH_PARM_BLK_SIZE);
  std::printf("A new preset has room for %u bytes.\n", presetRoom(view));
  for (unsigned int i = 0; i < findings.count; ++i) {
    const presetFinding_t& finding = findings.at[i];
    std::printf("%s: %s\n", finding.fault == FAULT_CUT ? "Note" : "Damage", finding.line);
  }
  std::printf(
      "%s. Checked: block words, record headers, what stands behind the logs. Not checked: "
      "payloads, "
      "which carry no check sum.\n",
      findings.worst == FAULT_CUT ? "Sound" : "Damaged");
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
  const presetFindings_t findings = presetJudge(view);
  std::printf("%s\n", printable(path).c_str());
  if (options.map) {
    printMap(words, view);
  } else if (!options.check) {
    for (unsigned int blkid = 0; blkid < TOTAL_FLASH_BLKS; ++blkid) {
      printBlk(words, view, blkid);
    }
  }
  printSummary(view, findings);
  return options.check && findings.worst != FAULT_CUT ? EXIT_DAMAGED : EXIT_SOUND;
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

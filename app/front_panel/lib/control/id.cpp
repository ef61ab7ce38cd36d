#include "id.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "env.h"

namespace {

// A value's text: at most 10 characters.
constexpr unsigned int TEXT_SIZE = 11;

bool readText(const char* name, char (&text)[TEXT_SIZE]) {
  const bool found = env_get(name, text, TEXT_SIZE) != nullptr;
  text[TEXT_SIZE - 1] = '\0';
  return found;
}

// A decimal number as 32-bit hosts read it: one that is too large is the largest.
unsigned int readNumber(const char* text) {
  const unsigned long number = std::strtoul(text, nullptr, 10);
  const bool tooLarge = number > UINT_MAX && std::strchr(text, '-') == nullptr;
  return tooLarge ? UINT_MAX : static_cast<unsigned int>(number);
}

struct SerialNumber {
  SerialNumber() {
    char text[TEXT_SIZE] = {};
    if (readText("SN", text)) {
      for (unsigned int i = 0; i < SER_NUM_LENGTH; ++i) {
        const char pair[3] = {text[2 * i], text[2 * i + 1], '\0'};
        bytes[i] = static_cast<unsigned char>(std::strtoul(pair, nullptr, 16));
      }
    }
  }

  unsigned char bytes[SER_NUM_LENGTH] = {};
};

struct BoardRevision {
  BoardRevision() {
    if (!readText("BRDREV", rev)) {
      ret = false;
      std::strcpy(rev, "A");
    }
    char text[TEXT_SIZE] = {};
    if (readText("BRDBLD", text)) {
      build = readNumber(text);
    } else {
      ret = false;
    }
  }

  char rev[TEXT_SIZE] = {};
  unsigned int build = 1;
  bool ret = true;
};

}  // namespace

void getSerNum(void* buf, unsigned int& len) {
  static const SerialNumber serNum;
  len = std::min(len, SER_NUM_LENGTH);
  if (len != 0) {
    std::memcpy(buf, serNum.bytes, len);
  }
}

bool getBoardRev(char* buf, unsigned int len, unsigned int& pbuild) {
  static const BoardRevision board;
  if (buf != nullptr && len != 0) {
    std::strncpy(buf, board.rev, len - 1);
    buf[len - 1] = '\0';
  }
  pbuild = board.build;
  return board.ret;
}

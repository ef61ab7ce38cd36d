#include "env.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

env_store_t envStore = nullptr;
const char* filePath = nullptr;

struct Close {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Close>;

constexpr char WHITE[] = " \t\r\n";

// Cuts the white space off the end of `text` and returns where it begins without that in front.
char* trim(char* text) {
  text += std::strspn(text, WHITE);
  std::size_t length = std::strlen(text);
  while (length > 0 && std::strchr(WHITE, text[length - 1]) != nullptr) {
    text[--length] = '\0';
  }
  return text;
}

// Reads a line and passes over what does not fit. Returns false at the end of the file.
template <std::size_t SIZE>
bool readLine(std::FILE* file, char (&line)[SIZE]) {
  if (std::fgets(line, SIZE, file) == nullptr) {
    return false;
  }
  if (std::strchr(line, '\n') == nullptr) {
    for (int c = std::getc(file); c != '\n' && c != EOF;) {
      c = std::getc(file);
    }
  }
  return true;
}

char* getFromFile(const char* name, char* value, unsigned int len) {
  const File file(std::fopen(filePath, "r"));
  if (file == nullptr) {
    return nullptr;
  }
  char* result = nullptr;
  char line[512];
  while (readLine(file.get(), line)) {
    char* const equals = std::strchr(line, '=');
    if (equals == nullptr) {
      continue;
    }
    *equals = '\0';
    const char* const key = trim(line);
    if (key[0] != '#' && std::strcmp(key, name) == 0) {
      std::strncpy(value, trim(equals + 1), len);
      result = value;
    }
  }
  return result;
}

}  // namespace

char* env_get(const char* name, char* value, const unsigned int len) {
  return envStore != nullptr ? envStore(name, value, len) : nullptr;
}

void env_set_store(env_store_t store) {
  envStore = store;
}

int env_use_file(const char* path) {
  if (File(std::fopen(path, "r")) == nullptr) {
    return -1;
  }
  filePath = path;
  env_set_store(getFromFile);
  return 0;
}

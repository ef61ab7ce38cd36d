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

constexpr std::size_t LINE = 510;  // bytes of a line that count

// Reads a line, ends it with a zero byte and passes over what does not fit. Returns false at the
// end of the file.
bool readLine(std::FILE* file, char (&line)[LINE + 1]) {
  std::size_t length = 0;
  int c = std::getc(file);
  const bool more = c != EOF;
  for (; c != '\n' && c != EOF; c = std::getc(file)) {
    if (length < LINE) {
      line[length++] = static_cast<char>(c);
    }
  }
  line[length] = '\0';
  return more;
}

char* getFromFile(const char* name, char* value, unsigned int len) {
  const File file(std::fopen(filePath, "r"));
  if (file == nullptr) {
    return nullptr;
  }
  bool found = false;
  char text[LINE + 1];
  char line[LINE + 1];
  while (readLine(file.get(), line)) {
    char* const equals = std::strchr(line, '=');
    if (equals == nullptr) {
      continue;
    }
    *equals = '\0';
    const char* const key = trim(line);
    if (key[0] != '#' && std::strcmp(key, name) == 0) {
      std::strcpy(text, trim(equals + 1));
      found = true;
    }
  }
  if (!found || std::ferror(file.get()) != 0) {
    return nullptr;
  }
  std::strncpy(value, text, len);
  return value;
}

}  // namespace

char* env_get(const char* name, char* value, const unsigned int len) {
  return envStore != nullptr ? envStore(name, value, len) : nullptr;
}

void env_set_store(env_store_t store) {
  envStore = store;
}

int env_use_file(const char* path) {
  const File file(std::fopen(path, "r"));
  if (file == nullptr || (std::getc(file.get()) == EOF && std::ferror(file.get()) != 0)) {
    return -1;  // a directory, too, can be opened and not read
  }
  filePath = path;
  env_set_store(getFromFile);
  return 0;
}

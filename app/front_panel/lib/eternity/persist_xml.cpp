#include "persist_xml.h"

#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

namespace eternity {

namespace {

constexpr char ROOT[] = "archive";
constexpr char FILE_START[] = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<archive>\n";
constexpr char FILE_END[] = "</archive>\n";

[[noreturn]] void failOn(const char* what, const std::string& name) {
  throw unreadable(std::string(what) + name + ": " + std::strerror(errno));
}

exception tooLarge(const std::string& name) {
  return exception(name + " is larger than " + std::to_string(xml_archive::LARGEST) + " bytes");
}

// A text never holds a zero byte; a block that the file system lost does.
std::string readFile(const std::string& name) {
  struct stat status;
  if (stat(name.c_str(), &status) != 0) {
    failOn("cannot open ", name);
  }
  if (!S_ISREG(status.st_mode)) {
    throw unreadable(name + " is no regular file");
  }
  std::ifstream in(name, std::ios::binary);
  if (!in) {
    failOn("cannot open ", name);
  }
  std::string text;
  text.reserve(std::min(static_cast<std::size_t>(status.st_size), xml_archive::LARGEST));
  char chunk[4096];
  do {
    in.read(chunk, sizeof chunk);
    const std::size_t count = static_cast<std::size_t>(in.gcount());
    if (std::memchr(chunk, 0, count) != nullptr) {
      throw exception(name + " is damaged: it holds a zero byte");
    }
    if (text.size() + count > xml_archive::LARGEST) {
      throw tooLarge(name);
    }
    text.append(chunk, count);
  } while (in);
  if (in.bad()) {
    failOn("cannot read ", name);
  }
  return text;
}

}  // namespace

xml_archive::xml_archive() {
  finish();
}

xml_archive::~xml_archive() {
  // A cancellation that began in the midst of writing could not leave a destructor.
  int previous;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
  finish();
  pthread_setcancelstate(previous, nullptr);
}

void xml_archive::open(const std::string& name, opening_mode mode) {
  finish();
  m_dBranches.clear();
  if (mode == load) {
    std::string file = readFile(name);
    try {
      m_pCurElement = m_oParser.parse(std::move(file), ROOT);
    } catch (const exception& e) {
      throw exception(name + ": " + e.what());
    }
    return;
  }
  m_oOut.open(name, std::ios::binary | std::ios::trunc);
  if (!m_oOut.is_open()) {
    throw exception("cannot create " + name + ": " + std::strerror(errno));
  }
  m_oOut << FILE_START;
  m_size = sizeof FILE_START + sizeof FILE_END;
  m_bloading = false;
}

std::string xml_archive::text(const std::string& key, int index) const {
  if (m_pCurElement == nullptr) {
    throw exception("read attempt on an archive not open for loading.");
  }
  const std::string_view* const found = m_pCurElement->find(key, index);
  if (found == nullptr) {
    throw exception("no element " + key);
  }
  return unescape(*found);
}

void xml_archive::read(const std::string& key, int& value, int index) {
  constexpr char SPACE[] = " \t\r\n";
  const std::string digits = text(key, index);
  const std::size_t from = digits.find_first_not_of(SPACE);
  const std::size_t to = digits.find_last_not_of(SPACE) + 1;
  int number = 0;
  if (from != std::string::npos) {
    const char* const last = digits.data() + to;
    const auto [end, error] = std::from_chars(digits.data() + from, last, number);
    if (error == std::errc() && end == last) {
      value = number;
      return;
    }
  }
  throw exception("the element " + key + " is no number");
}

void xml_archive::read(const std::string& key, std::string& value, int index) {
  value = text(key, index);
}

template <>
void xml_archive::write<int>(const std::string& key, int value) {
  put(key, std::to_string(value));
}

template <>
void xml_archive::write<char*>(const std::string& key, char* value) {
  put(key, escape(value == nullptr ? "" : value));
}

void xml_archive::put(const std::string& key, const std::string& value) {
  if (m_bloading) {
    throw exception("write attempt on an archive open for loading.");
  }
  if (!isElementName(key)) {
    throw exception("\"" + key + "\" is no name of an element");
  }
  const std::size_t size =
      m_size + static_cast<std::size_t>(m_nTab) + 2 * key.size() + value.size() + sizeof "<></>";
  if (size > LARGEST) {
    throw tooLarge("the file with " + key);
  }
  m_size = size;
  formatting();
  m_oOut << '<' << key << '>' << value << "</" << key << '>' << std::endl;
}

void xml_archive::formatting() {
  for (int i = 0; i < m_nTab; ++i) {
    m_oOut << '\t';
  }
}

// All of done() but its exception.
void xml_archive::finish() {
  m_vPointerstored.clear();
  m_bloading = true;
  m_pCurElement = nullptr;
  m_nTab = 0;
  if (m_oOut.is_open()) {
    m_oOut << FILE_END << std::flush;
    m_oOut.close();
  }
  m_oParser.close();
}

void xml_archive::done() {
  finish();
  if (!m_dBranches.empty()) {
    m_dBranches.clear();
    throw new exception(
        "enter_branch()/leave_current_branch() or make_branch()/leave_current_branch() mismatch");
  }
}

}  // namespace eternity

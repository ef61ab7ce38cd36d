#include "container.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "crc.h"
#include "debug.h"

namespace {

constexpr unsigned short CRC_START = 0xFFFF;
constexpr std::size_t MAX_MEMBERS = 255;
constexpr std::size_t MAX_DATA = 0xFFFFFFFF;

// A text field takes one character less than it has bytes: a zero byte ends it.
template <std::size_t SIZE>
constexpr std::size_t room(const char (&)[SIZE]) {
  return SIZE - 1;
}

template <std::size_t SIZE>
void put(char (&field)[SIZE], const std::string& text) {
  text.copy(field, SIZE - 1);
}

template <std::size_t SIZE>
std::string take(const char (&field)[SIZE]) {
  return std::string(field, strnlen(field, SIZE));
}

unsigned short crcOf(const void* bytes, std::size_t size) {
  return calcCRC16(CRC_START, static_cast<const unsigned char*>(bytes), size);
}

// The CRC of a header covers the bytes in front of it and the two zero bytes of its own high half.
template <class Header>
unsigned short headerCrc(const Header& header) {
  return crcOf(&header, offsetof(Header, crc) + 2);
}

template <class Header>
void append(std::string& bytes, Header& header) {
  header.crc = headerCrc(header);
  bytes.append(static_cast<const char*>(static_cast<const void*>(&header)), sizeof header);
}

bool isPrintable(const std::string& text) {
  return std::none_of(text.begin(), text.end(), [](char c) {
    const unsigned char byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

std::string textProblem(const char* what, const std::string& text, std::size_t most) {
  if (text.size() > most) {
    return std::string(what) + " \"" + text + "\" has " + std::to_string(text.size()) +
           " characters, and " + std::to_string(most) + " fit";
  }
  return isPrintable(text) ? "" : std::string(what) + " has a character that cannot be printed";
}

std::string identityProblem(const Identity& identity, const std::string& tag) {
  const component_t header{};
  const subcomp_t sub{};
  const struct {
    const char* what;
    const std::string& text;
    std::size_t most;
  } texts[] = {{"the product", identity.product, room(header.product_id)},
               {"the component", identity.component, room(header.component_id)},
               {"the location", identity.location, room(header.location_id)},
               {"the revision text", identity.revision, room(header.rev_string)},
               {"the date", identity.date, room(header.creation_date)},
               {"the tag", tag, room(sub.vctag)}};
  for (const auto& each : texts) {
    std::string problem = textProblem(each.what, each.text, each.most);
    if (!problem.empty()) {
      return problem;
    }
  }
  return identity.majorRev > 255 || identity.minorRev > 255 ? "a revision number is above 255" : "";
}

// The bytes that have not been looked at yet.
class Rest {
 public:
  explicit Rest(const std::string& all) : bytes(all) {}

  // Copies a header; false where it does not fit.
  template <class Header>
  bool header(Header& to) {
    if (left() < sizeof to) {
      return false;
    }
    std::memcpy(&to, bytes.data() + at, sizeof to);
    at += sizeof to;
    return to.crc == headerCrc(to);
  }

  // Takes `size` bytes, or what there is.
  std::string data(std::size_t size) {
    std::string part = bytes.substr(at, size);
    at += part.size();
    return part;
  }

  std::size_t left() const { return bytes.size() - at; }

 private:
  const std::string& bytes;
  std::size_t at = 0;
};

}  // namespace

const char* nameProblem(const std::string& name) {
  static const subcomp_t sub{};
  if (name.empty()) {
    return "is empty";
  }
  if (name.size() > room(sub.filename)) {
    return "does not fit: a name has at most 51 characters";
  }
  if (!isPrintable(name)) {
    return "has a character that cannot be printed";
  }
  if (name.front() == '/') {
    return "is absolute";
  }
  for (std::size_t from = 0; from <= name.size();) {
    const std::size_t end = std::min(name.find('/', from), name.size());
    const std::string part = name.substr(from, end - from);
    if (part == "..") {
      return "climbs";
    }
    if (part.empty() || part == ".") {
      return "is no plain path";
    }
    from = end + 1;
  }
  return nullptr;
}

std::string buildProblem(const Identity& identity, const std::vector<Member>& members,
                         const std::string& tag) {
  if (members.size() > MAX_MEMBERS) {
    return std::to_string(members.size()) + " files, and " + std::to_string(MAX_MEMBERS) + " fit";
  }
  std::set<std::string> names;
  for (const Member& member : members) {
    if (const char* const problem = nameProblem(member.name)) {
      return "the name \"" + member.name + "\" " + problem;
    }
    if (!names.insert(member.name).second) {
      return "the name \"" + member.name + "\" is there twice";
    }
    if (member.data.size() > MAX_DATA) {
      return member.name + " has more bytes than fit";
    }
  }
  return identityProblem(identity, tag);
}

std::string build(const Identity& identity, const std::vector<Member>& members,
                  const std::string& tag) {
  CTRL_ASSERT(buildProblem(identity, members, tag).empty());
  component_t header{};
  put(header.product_id, identity.product);
  put(header.component_id, identity.component);
  put(header.location_id, identity.location);
  header.major_rev = static_cast<unsigned char>(identity.majorRev);
  header.minor_rev = static_cast<unsigned char>(identity.minorRev);
  put(header.rev_string, identity.revision);
  put(header.creation_date, identity.date);
  header.num_subcomps = static_cast<unsigned char>(members.size());
  std::string bytes;
  append(bytes, header);
  for (const Member& member : members) {
    subcomp_t sub{};
    put(sub.filename, member.name);
    put(sub.vctag, tag);
    sub.filesize = static_cast<unsigned int>(member.data.size());
    sub.filecrc = crcOf(member.data.data(), member.data.size());
    append(bytes, sub);
    bytes += member.data;
  }
  return bytes;
}

Contents takeApart(const std::string& bytes) {
  Contents contents{};
  Rest rest(bytes);
  component_t header;
  contents.headerSound = rest.header(header);
  if (!contents.headerSound) {
    return contents;
  }
  contents.identity = {take(header.product_id),   take(header.component_id),
                       take(header.location_id),  header.major_rev,
                       header.minor_rev,          take(header.rev_string),
                       take(header.creation_date)};
  contents.count = header.num_subcomps;
  for (unsigned int i = 0; i < contents.count; ++i) {
    subcomp_t sub;
    Found found{};
    found.headerSound = rest.header(sub);
    if (found.headerSound) {
      found.name = take(sub.filename);
      found.tag = take(sub.vctag);
      found.crc = sub.filecrc;
      found.data = rest.data(sub.filesize);
      found.sound = found.data.size() == sub.filesize &&
                    crcOf(found.data.data(), found.data.size()) == sub.filecrc;
    }
    contents.files.push_back(found);
    if (!found.headerSound || found.data.size() != sub.filesize) {
      break;
    }
  }
  contents.trailing = rest.left();
  return contents;
}

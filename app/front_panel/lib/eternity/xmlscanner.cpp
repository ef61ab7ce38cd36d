#include "xmlscanner.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "persist.h"

// Context by context; the scan starts in `value`. "Outside" is between elements.
//
//   in            reads                              goes to
//   value         outside: white space, then
//                   <!-- ; <! or <? ; </ ; <         comment; doctype; closetag; tagname
//                   the end, the root being closed   endfile
//                 in a child: its text               closetag
//   tagname       < and a name: opens an element     attr
//   attr          a name and =                       attrvalue
//                 > or /                             closebracket
//   attrvalue     a quoted value                     attr
//   closebracket  >                                  value
//                 /> : closes the element            value
//   closetag      </name> : closes the element       value
//   comment       up to -->                          value
//   doctype       up to ?> or the matching >         value
//
// Everything else is a fault. Each step but the last moves forward, so the scan ends.

namespace eternity {

namespace {

constexpr char SPACE[] = " \t\r\n";
constexpr std::string_view TAG_NAME_END = " \t\r\n/>";
constexpr char NAME_END[] = " \t\r\n<>/=&'\"";

struct Entity {
  const char* name;
  char byte;
};

constexpr Entity ENTITIES[] = {
    {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};

// The byte that the reference `name`, without & and ;, stands for; 0 when it stands for none.
char referredByte(std::string_view name) {
  for (const Entity& e : ENTITIES) {
    if (name == e.name) {
      return e.byte;
    }
  }
  if (name.size() < 2 || name[0] != '#') {
    return 0;
  }
  const bool hex = name[1] == 'x';
  const char* const first = name.data() + (hex ? 2 : 1);
  const char* const last = name.data() + name.size();
  unsigned int code = 0;
  const auto [end, error] = std::from_chars(first, last, code, hex ? 16 : 10);
  if (error != std::errc() || end != last || code > 0xFF) {
    return 0;
  }
  return static_cast<char>(static_cast<unsigned char>(code));
}

}  // namespace

bool isElementName(const std::string& name) {
  // The array's terminator is one of the bytes that end a name here.
  return !name.empty() && name[0] != '!' && name[0] != '?' &&
         name.find_first_of(NAME_END, 0, sizeof NAME_END) == std::string::npos;
}

std::string unescape(std::string_view text) {
  constexpr std::size_t LONGEST = 8;  // of a reference between & and ;
  std::string out;
  std::size_t from = 0;
  for (;;) {
    const std::size_t amp = text.find('&', from);
    out.append(text, from, amp - from);
    if (amp == std::string::npos) {
      return out;
    }
    const std::size_t length = text.substr(amp + 1, LONGEST + 1).find(';');
    const char byte =
        length == std::string::npos ? '\0' : referredByte(text.substr(amp + 1, length));
    out += byte == 0 ? '&' : byte;
    from = byte == 0 ? amp + 1 : amp + length + 2;
  }
}

std::string escape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '\r':
        out += "&#13;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

node* xml_scanner::parse(std::string text, const std::string& rootName) {
  close();
  m_text = std::move(text);
  m_pos = at("\xEF\xBB\xBF") ? 3 : 0;
  try {
    for (context next = value; next != endfile;) {
      next = step(next);
    }
    if (m_root->name() != rootName) {
      throw exception("the root element is not " + rootName);
    }
  } catch (...) {
    close();
    throw;
  }
  m_root->sort();
  return m_root.get();
}

void xml_scanner::close() {
  m_root.reset();
  m_depth = OUTSIDE;
  std::string().swap(m_text);
  m_pos = 0;
}

xml_scanner::context xml_scanner::step(context now) {
  switch (now) {
    case value:
      return scanValue();
    case tagname:
      return scanTagname();
    case comment:
      return scanComment();
    case doctype:
      return scanDoctype();
    case attr:
      return scanAttr();
    case attrvalue:
      return scanAttrvalue();
    case closebracket:
      return scanClosebracket();
    case closetag:
      return scanClosetag();
    case endfile:
      break;
  }
  return endfile;
}

xml_scanner::context xml_scanner::scanValue() {
  if (m_depth == IN_CHILD) {
    return scanText();
  }
  skipSpace();
  if (m_pos == m_text.size()) {
    if (m_root == nullptr || m_depth != OUTSIDE) {
      fail("the file ends too early");
    }
    return endfile;
  }
  if (at("<!--")) {
    return comment;
  }
  if (at("<!") || at("<?")) {
    return doctype;
  }
  if (at("</")) {
    return closetag;
  }
  if (!at("<")) {
    fail("text outside of an element");
  }
  return tagname;
}

// A second start tag of the same name inside the text means that the end tag in between, or the
// name of the first start tag, is damaged: the text would swallow the elements up to there.
xml_scanner::context xml_scanner::scanText() {
  const std::size_t end = findEndTag(m_name);
  if (end == std::string::npos) {
    fail("the element " + std::string(m_name) + " has no end");
  }
  m_content = std::string_view(m_text).substr(m_pos, end - m_pos);
  const std::string start = "<" + std::string(m_name);
  for (std::size_t i = 0; (i = m_content.find(start, i)) != std::string::npos; i += start.size()) {
    const std::size_t behind = i + start.size();
    if (behind == m_content.size() ||
        TAG_NAME_END.find(m_content[behind]) != std::string_view::npos) {
      fail("the element " + std::string(m_name) + " begins twice");
    }
  }
  m_pos = end;
  return closetag;
}

xml_scanner::context xml_scanner::scanTagname() {
  ++m_pos;
  const std::string_view name = scanName();
  if (m_depth == IN_ROOT) {
    m_name = name;
    m_content = {};
    m_depth = IN_CHILD;
  } else {
    if (m_root != nullptr) {
      fail("an element behind the root element");
    }
    m_root = std::make_unique<node>(name);
    m_depth = IN_ROOT;
  }
  return attr;
}

xml_scanner::context xml_scanner::scanComment() {
  const std::size_t end = m_text.find("-->", m_pos + 4);
  if (end == std::string::npos) {
    fail("a comment has no end");
  }
  m_pos = end + 3;
  return value;
}

xml_scanner::context xml_scanner::scanDoctype() {
  if (at("<?")) {
    const std::size_t end = m_text.find("?>", m_pos + 2);
    if (end == std::string::npos) {
      fail("an instruction has no end");
    }
    m_pos = end + 2;
    return value;
  }
  // A declaration may hold others in square brackets, each with a > of its own.
  int brackets = 0;
  for (++m_pos; m_pos < m_text.size(); ++m_pos) {
    const char c = m_text[m_pos];
    brackets += c == '[' ? 1 : c == ']' ? -1 : 0;
    if (c == '>' && brackets <= 0) {
      ++m_pos;
      return value;
    }
  }
  fail("a declaration has no end");
}

xml_scanner::context xml_scanner::scanAttr() {
  skipSpace();
  if (at(">") || at("/")) {
    return closebracket;
  }
  scanName();
  skipSpace();
  if (!at("=")) {
    fail("an attribute without a value");
  }
  ++m_pos;
  return attrvalue;
}

xml_scanner::context xml_scanner::scanAttrvalue() {
  skipSpace();
  if (!at("\"") && !at("'")) {
    fail("an attribute without quotes");
  }
  const std::size_t end = m_text.find(m_text[m_pos], m_pos + 1);
  if (end == std::string::npos) {
    fail("an attribute has no end");
  }
  m_pos = end + 1;
  return attr;
}

xml_scanner::context xml_scanner::scanClosebracket() {
  if (at("/>")) {
    m_pos += 2;
    closeElement();
  } else if (at(">")) {
    ++m_pos;
  } else {
    fail("a tag has no end");
  }
  return value;
}

xml_scanner::context xml_scanner::scanClosetag() {
  m_pos += 2;
  if (m_depth == OUTSIDE || scanName() != (m_depth == IN_CHILD ? m_name : m_root->name())) {
    fail("an end tag without its start");
  }
  skipSpace();
  if (!at(">")) {
    fail("an end tag has no end");
  }
  ++m_pos;
  closeElement();
  return value;
}

void xml_scanner::skipSpace() {
  const std::size_t next = m_text.find_first_not_of(SPACE, m_pos);
  m_pos = next == std::string::npos ? m_text.size() : next;
}

bool xml_scanner::at(const char* token) const {
  const std::size_t length = std::char_traits<char>::length(token);
  return m_text.compare(m_pos, length, token) == 0;
}

std::string_view xml_scanner::scanName() {
  const std::size_t end = m_text.find_first_of(NAME_END, m_pos);
  if (end == m_pos || end == std::string::npos) {
    fail("a name is missing or has no end");
  }
  const std::string_view name = std::string_view(m_text).substr(m_pos, end - m_pos);
  m_pos = end;
  return name;
}

void xml_scanner::closeElement() {
  if (m_depth == IN_CHILD) {
    m_root->add(m_name, m_content);
    m_depth = IN_ROOT;
  } else {
    m_depth = OUTSIDE;
  }
}

// The position of the end tag of `name` at or behind the present one, or npos.
std::size_t xml_scanner::findEndTag(std::string_view name) const {
  const std::string tag = "</" + std::string(name);
  for (std::size_t i = m_pos; (i = m_text.find(tag, i)) != std::string::npos; i += tag.size()) {
    const std::size_t behind = m_text.find_first_not_of(SPACE, i + tag.size());
    if (behind != std::string::npos && m_text[behind] == '>') {
      return i;
    }
  }
  return std::string::npos;
}

void xml_scanner::fail(const std::string& what) const {
  const auto here = m_text.begin() + static_cast<std::ptrdiff_t>(m_pos);
  const auto line = 1 + std::count(m_text.begin(), here, '\n');
  throw exception(what + ", line " + std::to_string(line));
}

}  // namespace eternity

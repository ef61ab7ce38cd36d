#include "xmlscanner.h"

#include <algorithm>
#include <charconv>
#include <string_view>

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
char referredByte(const std::string& name) {
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

std::string unescape(const std::string& text) {
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

const xml_scanner::step_t xml_scanner::STEPS[endfile] = {
    &xml_scanner::scanValue,        &xml_scanner::scanTagname, &xml_scanner::scanComment,
    &xml_scanner::scanDoctype,      &xml_scanner::scanAttr,    &xml_scanner::scanAttrvalue,
    &xml_scanner::scanClosebracket, &xml_scanner::scanClosetag};

node* xml_scanner::parse(const std::string& text, const std::string& rootName) {
  close();
  m_text = &text;
  m_pos = at("\xEF\xBB\xBF") ? 3 : 0;
  try {
    for (context next = value; next != endfile;) {
      next = (this->*STEPS[next])();
    }
    if (m_root->name() != rootName) {
      throw exception("the root element is not " + rootName);
    }
  } catch (...) {
    close();
    throw;
  }
  m_text = nullptr;
  m_root->sort();
  return m_root.get();
}

void xml_scanner::close() {
  m_root.reset();
  m_open = nullptr;
  m_complete = false;
  m_text = nullptr;
  m_pos = 0;
}

xml_scanner::context xml_scanner::scanValue() {
  if (m_open != nullptr && m_open != m_root.get()) {
    return scanText();
  }
  skipSpace();
  if (m_pos == m_text->size()) {
    if (!m_complete) {
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
  const std::string& name = m_open->name();
  const std::size_t end = findEndTag(name);
  if (end == std::string::npos) {
    fail("the element " + name + " has no end");
  }
  const std::string raw = m_text->substr(m_pos, end - m_pos);
  const std::string start = "<" + name;
  for (std::size_t i = 0; (i = raw.find(start, i)) != std::string::npos; i += start.size()) {
    const std::size_t behind = i + start.size();
    if (behind == raw.size() || TAG_NAME_END.find(raw[behind]) != std::string_view::npos) {
      fail("the element " + name + " begins twice");
    }
  }
  m_open->setText(unescape(raw));
  m_pos = end;
  return closetag;
}

xml_scanner::context xml_scanner::scanTagname() {
  if (m_complete) {
    fail("an element behind the root element");
  }
  ++m_pos;
  const std::string name = scanName();
  if (m_root == nullptr) {
    m_root = std::make_unique<node>(name);
    m_open = m_root.get();
  } else {
    m_open = &m_root->add(name);
  }
  return attr;
}

xml_scanner::context xml_scanner::scanComment() {
  const std::size_t end = m_text->find("-->", m_pos + 4);
  if (end == std::string::npos) {
    fail("a comment has no end");
  }
  m_pos = end + 3;
  return value;
}

xml_scanner::context xml_scanner::scanDoctype() {
  if (at("<?")) {
    const std::size_t end = m_text->find("?>", m_pos + 2);
    if (end == std::string::npos) {
      fail("an instruction has no end");
    }
    m_pos = end + 2;
    return value;
  }
  // A declaration may hold others in square brackets, each with a > of its own.
  int brackets = 0;
  for (++m_pos; m_pos < m_text->size(); ++m_pos) {
    const char c = (*m_text)[m_pos];
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
  const std::size_t end = m_text->find((*m_text)[m_pos], m_pos + 1);
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
  if (m_open == nullptr || scanName() != m_open->name()) {
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
  const std::size_t next = m_text->find_first_not_of(SPACE, m_pos);
  m_pos = next == std::string::npos ? m_text->size() : next;
}

bool xml_scanner::at(const char* token) const {
  const std::size_t length = std::char_traits<char>::length(token);
  return m_text->compare(m_pos, length, token) == 0;
}

std::string xml_scanner::scanName() {
  const std::size_t end = m_text->find_first_of(NAME_END, m_pos);
  if (end == m_pos || end == std::string::npos) {
    fail("a name is missing or has no end");
  }
  std::string name = m_text->substr(m_pos, end - m_pos);
  m_pos = end;
  return name;
}

void xml_scanner::closeElement() {
  m_complete = m_open == m_root.get();
  m_open = m_complete ? nullptr : m_root.get();
}

// The position of the end tag of `name` at or behind the present one, or npos.
std::size_t xml_scanner::findEndTag(const std::string& name) const {
  const std::string tag = "</" + name;
  for (std::size_t i = m_pos; (i = m_text->find(tag, i)) != std::string::npos; i += tag.size()) {
    const std::size_t behind = m_text->find_first_not_of(SPACE, i + tag.size());
    if (behind != std::string::npos && (*m_text)[behind] == '>') {
      return i;
    }
  }
  return std::string::npos;
}

void xml_scanner::fail(const std::string& what) const {
  const std::string before = m_text->substr(0, m_pos);
  const auto line = 1 + std::count(before.begin(), before.end(), '\n');
  throw exception(what + ", line " + std::to_string(line));
}

}  // namespace eternity

// The parser of an XML archive: one root element, and children that each hold a text.
//
// It takes the whole file at once, as bytes, and is strict about the frame and lenient about texts:
// a file that was cut off anywhere is refused, and a text ends at its own end tag and nowhere else,
// so a bare & or < inside it is an ordinary character. Comments, instructions, a document type,
// attributes and white space between elements are passed over.
//
// The scanner owns the file's text and the parsed node until close(). A fault is an
// eternity::exception by value that names the line; nothing stops the process. One thread at a
// time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "dynamic.h"

namespace eternity {

/// The parser and, behind a parse, its result.
class xml_scanner {
 public:
  /// What the scanner expects next.
  enum context {
    value,         ///< the text of a child; between elements, the next `<`
    tagname,       ///< `<` and the name of a start tag
    comment,       ///< `<!--` to `-->`
    doctype,       ///< `<?` to `?>`, or `<!` to its `>`
    attr,          ///< the name of an attribute, or the end of the start tag
    attrvalue,     ///< the quoted value of an attribute
    closebracket,  ///< `>` or `/>`
    closetag,      ///< `</`, the name of the open element, `>`
    endfile,       ///< nothing more
  };

  /// No result.
  xml_scanner() = default;
  xml_scanner(const xml_scanner&) = delete;
  xml_scanner& operator=(const xml_scanner&) = delete;
  /// Frees the result.
  ~xml_scanner() = default;

  /// Parses a whole file and returns its root element, whose name is `rootName`. Ends an earlier
  /// parse. Throws eternity::exception; there is no root then.
  node* parse(std::string text, const std::string& rootName);

  /// Ends a parse and frees its result. Harmless without one.
  void close();

 private:
  // Reads what the context names, and tells the next one.
  context step(context now);
  context scanValue();
  context scanText();
  context scanTagname();
  context scanComment();
  context scanDoctype();
  context scanAttr();
  context scanAttrvalue();
  context scanClosebracket();
  context scanClosetag();

  void skipSpace();
  bool at(const char* token) const;
  std::string_view scanName();
  void closeElement();
  std::size_t findEndTag(std::string_view name) const;
  [[noreturn]] void fail(const std::string& what) const;

  // Which element is open.
  enum depth { OUTSIDE, IN_ROOT, IN_CHILD };

  std::string m_text;  // the file
  std::unique_ptr<node> m_root;
  depth m_depth = OUTSIDE;
  std::string_view m_name;     // of the open child
  std::string_view m_content;  // its text, as far as it has been read
  std::size_t m_pos = 0;       // the next byte of the file
};

/// Tells whether the scanner reads `name` back from a tag: it is not empty, does not begin with
/// ! or ?, and holds no white space, no zero byte and none of the characters < > / = & ' ".
bool isElementName(const std::string& name);

/// Replaces the references in `text` by the bytes they stand for.
std::string unescape(std::string_view text);

/// Writes the characters & < > and carriage return of `text` as references, so that a text of any
/// bytes but 0 reads back as it was.
std::string escape(const std::string& text);

}  // namespace eternity

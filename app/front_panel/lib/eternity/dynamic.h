// The elements of a parsed file.
//
// A node owns its children and its texts. The parser fills it and then calls sort() once; from
// then on it does not change, any thread may read it, and pointers to it stay valid until the
// parser that made it is closed. Nothing here fails.
#pragma once

#include <string>
#include <vector>

namespace eternity {

/// One element: its name, and either a text or the elements below it.
class node {
 public:
  /// An element without text and children.
  explicit node(const std::string& name) : m_name(name) {}
  /// Moves the element with all below it.
  node(node&&) = default;
  /// As the constructor.
  node& operator=(node&&) = default;
  node(const node&) = delete;
  node& operator=(const node&) = delete;

  /// The name of its tags.
  const std::string& name() const { return m_name; }
  /// The text between the tags, unescaped.
  const std::string& text() const { return m_text; }

  /// The `index`-th child, from 0, of the name `key` in the order of the file; null when there is
  /// none. Takes the logarithm of the number of children.
  node* find(const std::string& key, int index);

  /// Gives the element its text, unescaped.
  void setText(const std::string& text) { m_text = text; }
  /// Adds a child at the end and returns it. Pointers to earlier children become invalid.
  node& add(const std::string& name);
  /// Makes find work; called once, behind the last add.
  void sort();

 private:
  std::string m_name;
  std::string m_text;
  std::vector<node> m_children;
  std::vector<node*> m_byName;  // by name, then in the order of the file
};

}  // namespace eternity

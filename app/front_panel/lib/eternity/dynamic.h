// The elements of a parsed file.
//
// A node is the root element. It points into the text of the file, which the parser keeps as long
// as the node. The parser fills it and then calls sort() once; from then on it does not change, and
// any thread may read it. An element takes two views, whether anybody will ask for it or not.
// Nothing here fails.
#pragma once

#include <deque>
#include <string>
#include <string_view>

namespace eternity {

/// The root element, and the texts of those below it.
class node {
 public:
  /// An element of this name with none below it.
  explicit node(std::string_view name) : m_name(name) {}
  node(const node&) = delete;
  node& operator=(const node&) = delete;

  /// The name of its tags.
  const std::string& name() const { return m_name; }

  /// The text of the `index`-th child, from 0, of the name `key` in the order of the file, with its
  /// references as they stand there; null when there is none. Takes the logarithm of the number of
  /// children.
  const std::string_view* find(std::string_view key, int index) const;

  /// Adds a child at the end. Both views are of the file.
  void add(std::string_view name, std::string_view text) { m_children.push_back({name, text}); }
  /// Makes find work; called once, behind the last add.
  void sort();

 private:
  struct child {
    std::string_view name;
    std::string_view text;
  };

  const std::string m_name;
  std::deque<child> m_children;  // grows without a copy of all
};

}  // namespace eternity

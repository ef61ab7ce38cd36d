#include "dynamic.h"

#include <algorithm>

namespace eternity {

node* node::find(const std::string& key, int index) {
  const auto first =
      std::lower_bound(m_byName.begin(), m_byName.end(), key,
                       [](const node* child, const std::string& k) { return child->m_name < k; });
  if (index < 0 || m_byName.end() - first <= index || first[index]->m_name != key) {
    return nullptr;
  }
  return first[index];
}

node& node::add(const std::string& name) {
  m_children.emplace_back(name);
  return m_children.back();
}

void node::sort() {
  m_byName.clear();
  m_byName.reserve(m_children.size());
  for (node& child : m_children) {
    m_byName.push_back(&child);
  }
  std::stable_sort(m_byName.begin(), m_byName.end(),
                   [](const node* a, const node* b) { return a->m_name < b->m_name; });
}

}  // namespace eternity

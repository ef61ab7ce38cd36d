#include "dynamic.h"

#include <algorithm>

namespace eternity {

const std::string_view* node::find(std::string_view key, int index) const {
  const auto first =
      std::lower_bound(m_children.begin(), m_children.end(), key,
                       [](const child& each, std::string_view k) { return each.name < k; });
  if (index < 0 || m_children.end() - first <= index || first[index].name != key) {
    return nullptr;
  }
  return &first[index].text;
}

// By name, then in the order of the file.
void node::sort() {
  std::sort(m_children.begin(), m_children.end(), [](const child& a, const child& b) {
    const int order = a.name.compare(b.name);
    return order != 0 ? order < 0 : a.name.data() < b.name.data();
  });
}

}  // namespace eternity

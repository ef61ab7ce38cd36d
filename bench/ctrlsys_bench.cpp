// The index tree beside std::map and boost::intrusive::avl_set, and the registry's requests.
//
// Run: build/release/bin/ctrlsys_bench. Lower is better; the last lines give each alternative's
// time in units of the tree's, measured in the same run.
#include <boost/intrusive/avl_set.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "ctrlsys.h"
#include "ratio.h"
#include "simplectrlwrapvar.h"
#include "simplevarmgr.h"

namespace {

// Keys as applications choose them: scattered, in no order, and looked up in another one.
std::vector<unsigned int> makeKeys(unsigned int count) {
  std::mt19937 random(7);
  std::map<unsigned int, bool> seen;
  std::vector<unsigned int> keys;
  while (keys.size() < count) {
    const unsigned int key = static_cast<unsigned int>(random());
    if (!seen[key]) {
      seen[key] = true;
      keys.push_back(key);
    }
  }
  return keys;
}

std::vector<unsigned int> makeQueries(const std::vector<unsigned int>& keys) {
  std::mt19937 random(8);
  std::vector<unsigned int> queries(4096);
  for (unsigned int& query : queries) {
    query = keys[random() % keys.size()];
  }
  return queries;
}

struct Payload {
  ReadWriteNode node;
};

struct BoostNode : boost::intrusive::avl_set_base_hook<> {
  unsigned int index = 0;
  Payload payload{};
};

struct BoostKey {
  typedef unsigned int type;
  unsigned int operator()(const BoostNode& node) const { return node.index; }
};

using BoostSet = boost::intrusive::avl_set<BoostNode, boost::intrusive::key_of_value<BoostKey>>;

template <class Find>
void runFind(benchmark::State& state, const std::vector<unsigned int>& queries, Find find) {
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(find(queries[i++ & 4095]));
  }
}

void findAvlTree(benchmark::State& state) {
  const unsigned int count = static_cast<unsigned int>(state.range(0));
  const std::vector<unsigned int> keys = makeKeys(count);
  const unsigned int bytes =
      count * static_cast<unsigned int>(AVLTree::NODE_SIZE + sizeof(ReadWriteNode));
  std::vector<std::uint64_t> pool(bytes / 8 + 1);
  AVLTree tree(reinterpret_cast<char*>(pool.data()), bytes, sizeof(ReadWriteNode));
  for (const unsigned int key : keys) {
    ReadWriteNode node{};
    tree.insert(key, &node);
  }
  runFind(state, makeQueries(keys), [&](unsigned int key) { return tree.find(key); });
}

void findStdMap(benchmark::State& state) {
  const std::vector<unsigned int> keys = makeKeys(static_cast<unsigned int>(state.range(0)));
  std::map<unsigned int, Payload> map;
  for (const unsigned int key : keys) {
    map[key] = Payload{};
  }
  runFind(state, makeQueries(keys), [&](unsigned int key) { return &map.find(key)->second; });
}

void findBoostAvlSet(benchmark::State& state) {
  const std::vector<unsigned int> keys = makeKeys(static_cast<unsigned int>(state.range(0)));
  std::vector<BoostNode> nodes(keys.size());
  BoostSet set;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    nodes[i].index = keys[i];
    set.insert(nodes[i]);
  }
  runFind(state, makeQueries(keys), [&](unsigned int key) { return &*set.find(key); });
}

#define SIZES Arg(10)->Arg(100)->Arg(1000)->Arg(10000)
BENCHMARK(findAvlTree)->Name("find/AVLTree")->SIZES;
BENCHMARK(findStdMap)->Name("find/std::map")->SIZES;
BENCHMARK(findBoostAvlSet)->Name("find/boost::intrusive::avl_set")->SIZES;

// A registry of 1,000 scalar families with an integer variable each.
class Registry {
 public:
  static constexpr unsigned int FAMILIES = 1000;

  static Registry& instance() {
    static Registry registry;
    return registry;
  }

  std::vector<unsigned int> queries;

 private:
  struct Member {
    Member(unsigned int id, RefreshMgr& group)
        : var(global, group, 0, PERCENT, RANGE_CLIP),
          entry(id, 0, var, first, &slot, 1, nullptr, 0, nullptr) {}
    int global = 0;
    bool first = true;
    CtrlReadWrite* slot = nullptr;
    ReadWriteVarMgrSimpleInt var;
    SimpleCtrlReadWriteVarMgr entry;
  };

  Registry()
      : rwPool(poolBytes / 8 + 1),
        rwTree(reinterpret_cast<char*>(rwPool.data()), poolBytes, sizeof(ReadWriteNode)),
        readTree(readPool, sizeof readPool, sizeof(ReadNode)) {
    std::vector<CtrlReadWrite*> table;
    std::vector<unsigned int> keys;
    std::map<unsigned int, bool> seen;
    for (const unsigned int key : makeKeys(FAMILIES * 2)) {
      if (keys.size() < FAMILIES && !seen[key % 1000000]) {
        seen[key % 1000000] = true;
        keys.push_back(key % 1000000);
        // A group has 32 tokens; neighbours share one.
        groups.push_back(std::make_unique<RefreshMgr>());
        members.push_back(std::make_unique<Member>(keys.back(), *groups[groups.size() / 16]));
        table.push_back(&members.back()->entry);
      }
    }
    table.push_back(nullptr);
    CtrlRead* none = nullptr;
    ctrl_sys_init(&rwTree, &readTree, table.data(), &none, queue, 16, nullptr, 0, nullptr, nullptr,
                  nullptr, nullptr, nullptr, nullptr);
    queries = makeQueries(keys);
  }

  static constexpr bounds_t PERCENT[] = {{0, 100}, BOUNDS_END};
  static constexpr unsigned int poolBytes =
      FAMILIES * static_cast<unsigned int>(AVLTree::NODE_SIZE + sizeof(ReadWriteNode));
  std::vector<std::uint64_t> rwPool;
  alignas(8) char readPool[8];
  AVLTree rwTree;
  AVLTree readTree;
  CtrlReadWrite* queue[16];
  std::vector<std::unique_ptr<RefreshMgr>> groups;
  std::vector<std::unique_ptr<Member>> members;
};

void ctrlGet(benchmark::State& state) {
  const Registry& registry = Registry::instance();
  unsigned char buf[4];
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ctrlDoGet(registry.queries[i++ & 4095], 0, sizeof buf, buf));
    benchmark::DoNotOptimize(buf);
  }
}
BENCHMARK(ctrlGet);

void ctrlValidateSetConfirm(benchmark::State& state) {
  const Registry& registry = Registry::instance();
  unsigned char buf[4];
  std::size_t i = 0;
  for (auto _ : state) {
    ReadVarMgr::setBufInt(buf, sizeof buf, static_cast<int>(i % 100));
    benchmark::DoNotOptimize(ctrlDoValidateSet(registry.queries[i++ & 4095], 0, buf, sizeof buf));
    ctrlDoConfirm();
  }
}
BENCHMARK(ctrlValidateSetConfirm);

}  // namespace

int main(int argc, char** argv) {
  return runWithRatios(argc, argv);
}

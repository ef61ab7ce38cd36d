// Seeded random numbers that are the same on every host.
#pragma once

#include <random>

class Random {
 public:
  explicit Random(unsigned int seed) : engine(seed) {}
  /// A number from 0 to 0xFFFFFFFF.
  unsigned int word() { return static_cast<unsigned int>(engine()); }
  /// A number from 0 to `limit` - 1; `limit` is above 0.
  unsigned int below(unsigned int limit) { return word() % limit; }
  /// A number from `low` to `high`.
  int between(int low, int high) {
    return low + static_cast<int>(below(static_cast<unsigned int>(high - low + 1)));
  }
  /// True once in `n` times.
  bool oneIn(unsigned int n) { return below(n) == 0; }

 private:
  std::mt19937 engine;
};

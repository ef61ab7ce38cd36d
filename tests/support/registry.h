// The registry over trees and a confirm queue of a test's own.
#pragma once

#include <vector>

#include "ctrlsys.h"

struct Registry {
  static constexpr unsigned int QUEUE = 4;

  void start(std::vector<CtrlReadWrite*> rw, std::vector<CtrlRead*> read = {}) {
    rw.push_back(nullptr);
    read.push_back(nullptr);
    ctrl_sys_init(&rwTree, &readTree, rw.data(), read.data(), queue, QUEUE, nullptr, 0, nullptr,
                  nullptr, nullptr, nullptr, nullptr, nullptr);
  }

  alignas(4) char rwPool[40 * (AVLTree::NODE_SIZE + sizeof(ReadWriteNode))];
  alignas(4) char readPool[8 * (AVLTree::NODE_SIZE + sizeof(ReadNode))];
  AVLTree rwTree{rwPool, sizeof rwPool, sizeof(ReadWriteNode)};
  AVLTree readTree{readPool, sizeof readPool, sizeof(ReadNode)};
  CtrlReadWrite* queue[QUEUE] = {};
};

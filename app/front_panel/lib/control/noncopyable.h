// A base class that forbids copying.
//
// For objects that others hold pointers to. It has no state and no virtual operations, costs
// nothing, and never stops the process; any thread.
#pragma once

/// Base of what is not copied.
class Noncopyable {
 public:
  Noncopyable(const Noncopyable&) = delete;
  Noncopyable& operator=(const Noncopyable&) = delete;

 protected:
  Noncopyable() = default;
  ~Noncopyable() = default;
};

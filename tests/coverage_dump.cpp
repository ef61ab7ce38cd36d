// Built into each test of a coverage build: a process that a fatal assertion ends keeps what it has
// counted, so that the branches into those assertions count as the death tests reach them.
#include <csignal>

extern "C" void __gcov_dump();

namespace {

const auto installed = std::signal(SIGABRT, [](int) { __gcov_dump(); });

}  // namespace

# CLI11, the command-line parser of the tools and the panel.
include(${CMAKE_CURRENT_LIST_DIR}/HostHeaders.cmake)
find_host_headers(CLI11 CLI/CLI.hpp CLI11::CLI11)

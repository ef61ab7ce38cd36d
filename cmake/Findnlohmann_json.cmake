# nlohmann_json, which writes JSON for the panel.
include(${CMAKE_CURRENT_LIST_DIR}/HostHeaders.cmake)
find_host_headers(nlohmann_json nlohmann/json.hpp nlohmann_json::nlohmann_json)

# The JSON library that tests compare with, for the cross compiler.
include(${CMAKE_CURRENT_LIST_DIR}/ArchitectureIndependent.cmake)
header_package(nlohmann_json nlohmann nlohmann_json::nlohmann_json nlohmann/json.hpp)

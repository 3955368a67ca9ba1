# The libraries of headers alone that the program is compiled with: CLI11 and nlohmann_json. Where the program is cross-built, those of
# this machine serve; what else lies in their folder must not be seen.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  return()
endif()

foreach(pair IN ITEMS "CLI11::CLI11 CLI" "nlohmann_json::nlohmann_json nlohmann")
  separate_arguments(pair)
  list(GET pair 0 target)
  list(GET pair 1 folder)
  find_path(KO_HEADERS_${folder} ${folder} PATHS /usr/include /usr/local/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/headers)
  file(CREATE_LINK ${KO_HEADERS_${folder}}/${folder} ${PROJECT_BINARY_DIR}/headers/${folder} SYMBOLIC)
  add_library(${target} INTERFACE IMPORTED)
  target_include_directories(${target} SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/headers)
endforeach()

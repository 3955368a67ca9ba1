# Files through the plug-in, on each system that it is built for: a program that loads and saves, and tests in Python that make
# the files, drive the program and read what it has saved. The sanitizers have the tests in C++.
if(KO_SANITIZE)
  return()
endif()
find_package(Python3 COMPONENTS Interpreter)
if(Python3_FOUND)
  execute_process(COMMAND ${Python3_EXECUTABLE} -c "import numpy, pytest, PIL" RESULT_VARIABLE status OUTPUT_QUIET ERROR_QUIET)
endif()
if(NOT Python3_FOUND OR NOT status EQUAL 0)
  message(WARNING "No Python with numpy, pytest and Pillow: the plug-in is not tested with their files.")
  return()
endif()

include(${PROJECT_SOURCE_DIR}/cmake/header_libraries.cmake)
add_executable(koio_probe probe.cpp)
target_link_libraries(koio_probe PRIVATE ko nlohmann_json::nlohmann_json Threads::Threads ko_warnings)
# g++ 12 sees overlaps in std::string that are not there.
target_compile_options(koio_probe PRIVATE ${KO_TEST_OPTIMISATION} -g0 $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
add_dependencies(koio_probe koio)
if(WIN32)
  target_link_libraries(koio_probe PRIVATE ole32)
  target_link_options(koio_probe PRIVATE -static)
  # Beside the plug-in, with the library that both need.
  set(folder ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/koio)
  set_target_properties(koio_probe PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${folder})
  add_custom_command(
    OUTPUT ${folder}/ko.dll
    COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
    COMMAND ${CMAKE_COMMAND} -E create_hardlink $<TARGET_FILE:ko> ${folder}/ko.dll
    DEPENDS ko
    VERBATIM)
  target_sources(koio_probe PRIVATE ${folder}/ko.dll)
endif()

add_test(NAME koio_files_test
         COMMAND ${Python3_EXECUTABLE} -m pytest -q -p no:cacheprovider ${CMAKE_CURRENT_SOURCE_DIR}/files_test.py)
set(environment PYTHONDONTWRITEBYTECODE=1 KO_PROBE=$<TARGET_FILE:koio_probe> KO_EMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}
                KO_ROOT=${PROJECT_SOURCE_DIR})
set_tests_properties(koio_files_test PROPERTIES ENVIRONMENT "${KO_TEST_ENVIRONMENT};${environment}" TIMEOUT 600)

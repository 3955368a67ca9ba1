# The warnings of our own code; errors with KO_WERROR.
add_library(ko_warnings INTERFACE)
target_compile_options(ko_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${KO_WERROR}>:-Werror>)
if(EMSCRIPTEN)
  # Sizes are 64-bit numbers in the interface, and size_t has 32 bits here. What is allocated is checked against a limit of
  # 31 bits before it becomes a size_t (alloc.h), and what is copied was allocated. The pragmas are those of g++.
  target_compile_options(ko_warnings INTERFACE -Wno-shorten-64-to-32 -Wno-unknown-pragmas)
endif()

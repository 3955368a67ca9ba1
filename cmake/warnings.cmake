# The warnings of our own code; errors with KO_WERROR.
add_library(ko_warnings INTERFACE)
target_compile_options(ko_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${KO_WERROR}>:-Werror>)

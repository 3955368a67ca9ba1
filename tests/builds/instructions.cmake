# Looks at the instructions of a built library.
#   cmake -D LIBRARY=... -D OBJDUMP=... -D WIDE=0|1 -D WINDOWS=0|1 -P instructions.cmake
# No build has fused operations: they round once where two roundings are part of the result. Vectors of 32 bytes are in the build
# for AVX2 alone. On Windows the stack is aligned to 16 bytes, so that no move of 32 may ask for more there.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${OBJDUMP} -d --no-show-raw-insn ${LIBRARY} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE ";" "," text "${text}")

# refuse(WHAT PATTERN): fails if a line matches.
function(refuse what pattern)
  string(REGEX MATCHALL "[^\n]*${pattern}[^\n]*" lines "${text}")
  list(LENGTH lines count)
  if(count)
    list(GET lines 0 first)
    message(FATAL_ERROR "${LIBRARY}: ${count} times ${what}, first${first}")
  endif()
endfunction()

string(REGEX MATCH "\tmov" any "${text}")
if(NOT any)
  message(FATAL_ERROR "${LIBRARY}: no instructions are read")
endif()
refuse("a fused operation" "\tvfn?m(add|sub)")
if(WIDE)
  string(REGEX MATCH "\tvmulps[^\n]*%ymm" any "${text}")
  if(NOT any)
    message(FATAL_ERROR "${LIBRARY}: no vectors of 32 bytes")
  endif()
else()
  refuse("an instruction that not every processor has" "\tv[a-z0-9]+[ \t]+[^\n]*%[xyz]mm")
endif()
if(WINDOWS)
  refuse("an aligned move of 32 bytes to or from the stack" "\tv(movaps|movapd|movdqa|movntps|movntpd|movntdq)[ \t][^\n]*%ymm[^\n]*%r[sb]p")
  refuse("an aligned move of 32 bytes to or from the stack" "\tv(movaps|movapd|movdqa|movntps|movntpd|movntdq)[ \t][^\n]*%r[sb]p[^\n]*%ymm")
endif()

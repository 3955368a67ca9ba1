# Installs, consumes by find_package and by pkg-config, runs. Any step that fails ends the test.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# run_example(PROGRAM OUTPUT): OUTPUT is a regular expression.
function(run_example program expected)
  execute_process(COMMAND ${EMULATOR} ${program} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  if(NOT output MATCHES "${expected}")
    message(FATAL_ERROR "unexpected output: ${output}")
  endif()
  set(matches ${CMAKE_MATCH_1} ${CMAKE_MATCH_2} PARENT_SCOPE)
endfunction()

function(run_enhance program)
  run_example(${program} "dark corner: mean ([0-9.]+) before, ([0-9.]+) after")
  list(GET matches 0 before)
  list(GET matches 1 after)
  if(NOT after GREATER before)
    message(FATAL_ERROR "the dark corner was not opened: from ${before} to ${after}")
  endif()
endfunction()

file(REMOVE_RECURSE ${PREFIX} ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX} --component Unspecified)

set(toolchain)
if(TOOLCHAIN)
  set(toolchain -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DCMAKE_FIND_ROOT_PATH=${PREFIX})
endif()
run(${CMAKE_COMMAND} -S ${EXAMPLES} -B ${WORK} -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH=${PREFIX} ${toolchain})
run(${CMAKE_COMMAND} --build ${WORK})
if(EXISTS ${PREFIX}/bin/ko.dll)
  file(COPY ${PREFIX}/bin/ko.dll DESTINATION ${WORK})
endif()
run_enhance(${WORK}/enhance${EXECUTABLE_SUFFIX})
run_example(${WORK}/tint${EXECUTABLE_SUFFIX} "first row: 120 100 80\r?\nlast row: 80 100 120")

# The build for AVX2 is installed too, and is the one that is loaded where the processor has it: of itself on Linux, as a copy beside the
# program on Windows.
if(RUNS_AVX2)
  if(EXISTS ${PREFIX}/bin/ko.dll)
    file(COPY ${PREFIX}/bin/${AVX2_FOLDER}/ko.dll DESTINATION ${WORK})
    run_enhance(${WORK}/enhance${EXECUTABLE_SUFFIX})
  else()
    execute_process(COMMAND ldd ${WORK}/enhance OUTPUT_VARIABLE loaded COMMAND_ERROR_IS_FATAL ANY)
    if(NOT loaded MATCHES "${PREFIX}/${LIBDIR}/${AVX2_FOLDER}/libko")
      message(FATAL_ERROR "the build for AVX2 is not loaded: ${loaded}")
    endif()
  endif()
endif()

set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
execute_process(COMMAND pkg-config --cflags --libs ko OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags)
run(${COMPILER} ${EXAMPLES}/enhance.c -o ${WORK}/by_pkg_config${EXECUTABLE_SUFFIX} ${flags} -Wl,-rpath,${PREFIX}/${LIBDIR})
run_enhance(${WORK}/by_pkg_config${EXECUTABLE_SUFFIX})

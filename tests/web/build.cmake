# Builds the package from SOURCE in BUILD, with LAUNCHER before the compiler unless it is empty.
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${BUILD} --preset web -DCMAKE_C_COMPILER_LAUNCHER=${LAUNCHER}
                        -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER} WORKING_DIRECTORY ${SOURCE} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} COMMAND_ERROR_IS_FATAL ANY)

# Makes the reference: a copy of the headers in the form that doxygen takes, and the pages from it.
file(REMOVE_RECURSE ${OUTPUT}/include)
execute_process(COMMAND ${PYTHON} -B ${CMAKE_CURRENT_LIST_DIR}/doxygen_headers.py ${INCLUDE} ${OUTPUT}/include COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${DOXYGEN} ${OUTPUT}/Doxyfile COMMAND_ERROR_IS_FATAL ANY)

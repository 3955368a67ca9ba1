# What Debian asks of the installed files of each package; CPack runs it between installing and packing, and takes the variables
# that it sets.
#   - The loader searches the folder of the libraries anyway: run paths are removed.
#   - Manual pages are compressed, and the examples lie in the folder of their package.
#   - Dependencies on shared libraries are those that dpkg-shlibdeps finds. CPack can call it too, but for each package alone, so
#     that it would not know which package has libko, and would then add calls of ldconfig for which Debian has triggers.

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# find_programs(FOLDER PROGRAMS): the programs and shared libraries below it.
function(find_programs folder programs)
  set(found)
  file(GLOB_RECURSE files LIST_DIRECTORIES false ${folder}/usr/bin/* ${folder}/usr/lib/*.so ${folder}/usr/lib/*.so.*)
  foreach(file IN LISTS files)
    if(NOT IS_SYMLINK ${file})
      list(APPEND found ${file})
    endif()
  endforeach()
  set(${programs} ${found} PARENT_SCOPE)
endfunction()

# find_dependencies(FOLDER DEPENDENCIES PROGRAM...): DEBIAN is how dpkg-shlibdeps recognises the folder of a package.
function(find_dependencies folder dependencies)
  set(work ${CPACK_TOPLEVEL_DIRECTORY}/shlibdeps)
  file(WRITE ${work}/debian/control "")
  file(MAKE_DIRECTORY ${folder}/DEBIAN)
  execute_process(
    COMMAND dpkg-shlibdeps -O -L${CPACK_KO_SHLIBS} -l${CPACK_TEMPORARY_DIRECTORY}/ko_library/usr/${CPACK_KO_LIBDIR} ${ARGN}
    WORKING_DIRECTORY ${work}
    OUTPUT_VARIABLE output
    OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${folder}/DEBIAN)
  string(REGEX REPLACE "^shlibs:Depends=" "" output "${output}")
  set(${dependencies} ${output} PARENT_SCOPE)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER CPACK_DEBIAN_${component}_PACKAGE_ variable)
  set(folder ${CPACK_TEMPORARY_DIRECTORY}/${component})
  find_programs(${folder} programs)
  foreach(program IN LISTS programs)
    file(RPATH_REMOVE FILE ${program})
  endforeach()
  if(programs)
    find_dependencies(${folder} depends ${programs})
    list(APPEND ${variable}DEPENDS ${depends})
    list(JOIN ${variable}DEPENDS ", " ${variable}DEPENDS)
  endif()
  file(GLOB pages ${folder}/usr/share/man/man*/*)
  foreach(page IN LISTS pages)
    run(gzip -9n ${page})
  endforeach()
  if(EXISTS ${folder}/usr/share/doc/ko)
    file(RENAME ${folder}/usr/share/doc/ko ${folder}/usr/share/doc/${${variable}NAME})
  endif()
endforeach()

# Compares the list of exported names with what the public headers declare, both ways, and with the number of names that make
# the interface complete. The list makes the library's exports, so the library alone cannot tell whether the list is right.
#   cmake -D HEADERS=FOLDER -D EXPORTS=... -D COUNT=... -D READER=... -P declared.cmake
cmake_minimum_required(VERSION 3.25)
include(${READER})

file(GLOB headers ${HEADERS}/*.h)
set(declared)
foreach(header IN LISTS headers)
  file(READ ${header} text)
  string(REGEX REPLACE "#[^\n]*" "" text "${text}") # what KO_API stands for
  string(REGEX REPLACE "[\n ]+" " " text "${text}")
  string(REGEX MATCHALL "KO_API [^;(]*" declarations "${text}")
  foreach(declaration IN LISTS declarations)
    string(REGEX REPLACE "\\[[0-9]+\\]$" "" declaration "${declaration}")
    string(REGEX MATCH "[A-Za-z0-9_]+$" name "${declaration}")
    list(APPEND declared ${name})
  endforeach()
endforeach()

ko_read_exports(${EXPORTS} functions data)
set(listed ${functions} ${data})
list(LENGTH listed count)
set(not_listed ${declared})
list(REMOVE_ITEM not_listed ${listed})
set(not_declared ${listed})
list(REMOVE_ITEM not_declared ${declared})
message("${count} names listed; declared but not listed: ${not_listed}; listed but not declared: ${not_declared}")
if(not_listed OR not_declared OR NOT count EQUAL COUNT)
  message(FATAL_ERROR "headers and list should hold the same ${COUNT} names")
endif()

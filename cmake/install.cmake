# The library, its headers, examples, and what find_package(ko) and pkg-config read. What is needed to run hosts and what is needed
# to build them are two components.
include(CMakePackageConfigHelpers)

install(TARGETS ko kohost ko_package EXPORT koTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ko_library NAMELINK_COMPONENT ko_development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ko_development
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ko_library)
if(KO_AVX2)
  install(TARGETS ko_avx2
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${KO_AVX2_FOLDER} COMPONENT ko_library NAMELINK_SKIP
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}/${KO_AVX2_FOLDER} COMPONENT ko_library)
endif()
if(WIN32)
  # For linkers that make their own import library.
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/src/lib/ko/ko.def DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ko_development)
endif()
install(DIRECTORY src/lib/ko/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT ko_development)
install(DIRECTORY src/kohost DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT ko_development FILES_MATCHING PATTERN "*.h"
        PATTERN "*.hpp")
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT ko_development)

set(KO_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ko)
install(EXPORT koTargets NAMESPACE ko:: DESTINATION ${KO_PACKAGE_DIR} COMPONENT ko_development)
configure_package_config_file(cmake/koConfig.cmake.in koConfig.cmake INSTALL_DESTINATION ${KO_PACKAGE_DIR})
write_basic_package_version_file(koConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/koConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/koConfigVersion.cmake
        DESTINATION ${KO_PACKAGE_DIR} COMPONENT ko_development)

file(RELATIVE_PATH KO_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/ko.pc.in ko.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ko.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ko_development)

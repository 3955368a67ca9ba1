# The package: library, public headers, and what find_package(ko) and pkg-config read.
include(CMakePackageConfigHelpers)

install(TARGETS ko kohost ko_package EXPORT koTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(KO_AVX2)
  install(TARGETS ko_avx2
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${KO_AVX2_FOLDER} NAMELINK_SKIP
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}/${KO_AVX2_FOLDER})
endif()
if(WIN32)
  # For linkers that make their own import library.
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/src/lib/ko/ko.def DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(DIRECTORY src/lib/ko/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY src/kohost DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")

set(KO_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ko)
install(EXPORT koTargets NAMESPACE ko:: DESTINATION ${KO_PACKAGE_DIR})
configure_package_config_file(cmake/koConfig.cmake.in koConfig.cmake INSTALL_DESTINATION ${KO_PACKAGE_DIR})
write_basic_package_version_file(koConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/koConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/koConfigVersion.cmake
        DESTINATION ${KO_PACKAGE_DIR})

file(RELATIVE_PATH KO_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/ko.pc.in ko.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ko.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

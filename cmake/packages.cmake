# The packages, which CPack makes of what is installed: a zip for Windows, and elsewhere Debian packages, one for each install
# component. cmake/debian has what these hold beyond the files; its prepare.cmake adds the dependencies.
set(CPACK_PACKAGE_CONTACT "The maintainers of ko <maintainers@ko.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # CPack would put it above each package's own
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  include(CPack)
  return()
endif()

# ko_debian_package(COMPONENT NAME SECTION DESCRIPTION): the first line of the description is its synopsis.
macro(ko_debian_package component name section description)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  string(TOUPPER CPACK_DEBIAN_${component} prefix)
  set(${prefix}_PACKAGE_NAME ${name})
  set(${prefix}_PACKAGE_SECTION ${section})
  set(${prefix}_DESCRIPTION "${description}")
endmacro()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE ko)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(KO_DEBIAN ${CMAKE_CURRENT_LIST_DIR}/debian)
set(CPACK_PRE_BUILD_SCRIPTS ${KO_DEBIAN}/prepare.cmake)
set(CPACK_KO_LIBDIR ${CMAKE_INSTALL_LIBDIR})

set(library libko${PROJECT_VERSION_MAJOR})
set(CPACK_KO_SHLIBS ${PROJECT_BINARY_DIR}/debian/shlibs)
configure_file(${KO_DEBIAN}/ko_library/shlibs.in ${CPACK_KO_SHLIBS})
ko_debian_package(
  ko_library ${library} libs
  "automatic improvement of photographs - library
ko opens the shadows of photographs without touching what is well exposed,
using a smooth grid of tone curves that it derives from the picture itself,
and finds and repairs red eyes.

This package has the shared library, in a build for any 64-bit x86 processor
and in one for those with AVX2, which the loader prefers where it can.")
set(CPACK_DEBIAN_KO_LIBRARY_PACKAGE_SUGGESTS libko-koio)
set(CPACK_DEBIAN_KO_LIBRARY_PACKAGE_CONTROL_EXTRA ${CPACK_KO_SHLIBS} ${KO_DEBIAN}/ko_library/triggers)

ko_debian_package(
  ko_development libko-dev libdevel
  "automatic improvement of photographs - development files
ko opens the shadows of photographs and repairs red eyes.

This package has what programs in C and C++ are built with: headers, the
static library kohost, files for CMake and pkg-config, and examples.")
set(CPACK_DEBIAN_KO_DEVELOPMENT_PACKAGE_DEPENDS "${library} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_KO_DEVELOPMENT_PACKAGE_SUGGESTS libko-koio)

if(TARGET koio)
  ko_debian_package(
    ko_plugin libko-koio libs
    "automatic improvement of photographs - PNG and JPEG files
ko opens the shadows of photographs and repairs red eyes.

This package has the plug-in by which programs load and save PNG and JPEG
files through the library's functions.")
endif()
if(TARGET ko_host)
  ko_debian_package(
    ko_program ko graphics
    "automatic improvement of photographs - program
ko opens the shadows of photographs without touching what is well exposed,
and finds and repairs red eyes. It processes files and folders in JPEG, PNG,
TIFF and WebP, reads HEIC and AVIF, and carries metadata over. Pictures that
would not benefit are left as they are.")
endif()
if(KO_PYTHON)
  math(EXPR next "${Python3_VERSION_MINOR} + 1")
  ko_debian_package(
    ko_python3 python3-ko python
    "automatic improvement of photographs - Python 3
ko opens the shadows of photographs and repairs red eyes.

This package has the Python module, which works on pictures that are numpy
arrays and gives the results of the program ko.")
  set(CPACK_DEBIAN_KO_PYTHON3_PACKAGE_DEPENDS
      "python3 (>= 3.${Python3_VERSION_MINOR}~), python3 (<< 3.${next}~), python3-numpy")
  set(CPACK_DEBIAN_KO_PYTHON3_PACKAGE_RECOMMENDS "python3-pil, python3-distributed")
  set(CPACK_DEBIAN_KO_PYTHON3_PACKAGE_CONTROL_EXTRA ${KO_DEBIAN}/ko_python3/postinst ${KO_DEBIAN}/ko_python3/prerm)
endif()
include(CPack)

# What 'cmake --install' puts below the prefix: the library, the public headers, and what CMake and
# pkg-config need to find them. All of it may be moved afterwards. Its components are
# zqplatform-runtime, what a linked program needs, and zqplatform-development; the example programs
# add zqplatform-tools.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# Refuses at once, and in one line, where nothing can be written.
install(CODE [[
  get_filename_component(place "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/" ABSOLUTE)
  set(there "${place}")
  while(NOT EXISTS "${there}")
    get_filename_component(there "${there}" DIRECTORY)
  endwhile()
  execute_process(COMMAND test -d "${there}" -a -w "${there}" RESULT_VARIABLE refused)
  if(refused)
    # The blank at the front keeps CMake from breaking the line.
    message(FATAL_ERROR " Cannot write to ${place}: choose another directory with --prefix, or run as a user who may")
  endif()
]] ALL_COMPONENTS)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME zqplatform-development)
install(TARGETS zqplatform EXPORT zqplatform
  LIBRARY COMPONENT zqplatform-runtime NAMELINK_COMPONENT zqplatform-development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The public headers are those that zqplatform.h includes.
set(summary ${PROJECT_SOURCE_DIR}/platform/zqplatform.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${summary})
file(STRINGS ${summary} headers REGEX "^#include \"")
list(TRANSFORM headers REPLACE "#include \"(.*)\"" "${PROJECT_SOURCE_DIR}/platform/\\1")
install(FILES ${headers} ${summary} ${PROJECT_SOURCE_DIR}/platform/zqexport.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqplatform)

# Callers need no other package, so the list of targets is the whole package configuration.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zqplatform)
install(EXPORT zqplatform
  FILE zqplatform-config.cmake NAMESPACE ZQPlatform:: DESTINATION ${package_dir})
# A later release serves programs written for an earlier one.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/zqplatform-config-version.cmake
  COMPATIBILITY AnyNewerVersion)
install(FILES ${PROJECT_BINARY_DIR}/zqplatform-config-version.cmake DESTINATION ${package_dir})

# The prefix is found from where the file lies; directories given as absolute paths stay as given.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE ZQPLATFORM_PC_PREFIX)
cmake_path(APPEND ZQPLATFORM_PC_INCLUDEDIR "\${prefix}" ${CMAKE_INSTALL_INCLUDEDIR})
cmake_path(APPEND ZQPLATFORM_PC_LIBDIR "\${prefix}" ${CMAKE_INSTALL_LIBDIR})
configure_file(${CMAKE_CURRENT_LIST_DIR}/zqplatform.pc.in ${PROJECT_BINARY_DIR}/zqplatform.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zqplatform.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

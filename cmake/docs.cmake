# The target 'doc', built with ALL: the reference as HTML and as man pages, both from the comments of
# the public headers, and the guides. Nothing of it depends on when or where it is built.

include(GNUInstallDirs)

find_program(ZQPLATFORM_DOXYGEN doxygen)
find_program(ZQPLATFORM_DOT dot)
find_path(ZQPLATFORM_DOXYGEN_THEME doxygen-awesome.css
  PATHS /usr/share/doxygen-awesome-css /usr/local/share/doxygen-awesome-css)
if(NOT ZQPLATFORM_DOXYGEN OR NOT ZQPLATFORM_DOT OR NOT ZQPLATFORM_DOXYGEN_THEME)
  message(FATAL_ERROR "Install doxygen, doxygen-awesome-css and graphviz (names of Debian)")
endif()

set(sources ${PROJECT_SOURCE_DIR}/docs/reference)
set(doc_dir ${PROJECT_BINARY_DIR}/doc)
file(MAKE_DIRECTORY ${doc_dir})

# The public headers, under the names that callers include them by, and the guides.
set(summary ${PROJECT_SOURCE_DIR}/platform/zqplatform.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${summary})
file(STRINGS ${summary} headers REGEX "^#include \"")
list(TRANSFORM headers REPLACE "#include \"(.*)\"" "\\1")
list(APPEND headers zqexport.h zqplatform.h)
list(SORT headers)
list(TRANSFORM headers PREPEND ${PROJECT_BINARY_DIR}/include/zqplatform/)
file(GLOB guides CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
file(GLOB house_files CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/*.md)
list(APPEND guides ${house_files})
file(GLOB plots CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/performance/*.svg)

# ---- the figures

file(GLOB figures CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/figures/*.dot)
file(GLOB code CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/platform/*.h ${PROJECT_SOURCE_DIR}/platform/*.cpp)
set(drawn "")
foreach(figure ${figures})
  cmake_path(GET figure STEM name)
  list(APPEND drawn ${doc_dir}/figures/${name}.svg)
  add_custom_command(OUTPUT ${doc_dir}/figures/${name}.svg
    COMMAND ${CMAKE_COMMAND} -E make_directory ${doc_dir}/figures
    COMMAND sh ${sources}/figure ${ZQPLATFORM_DOT} ${figure} ${code}
      > ${doc_dir}/figures/${name}.svg
    DEPENDS ${figure} ${code} ${sources}/figure ${sources}/includes.awk
    COMMENT "Drawing ${name}.svg" VERBATIM)
endforeach()

# ---- the pages

execute_process(COMMAND ${ZQPLATFORM_DOXYGEN} -w html header.html footer.html style.css
  WORKING_DIRECTORY ${doc_dir} OUTPUT_QUIET)
file(READ ${doc_dir}/header.html page_head)
string(REPLACE "</head>" "\
<script src=\"$relpath^doxygen-awesome-darkmode-toggle.js\"></script>
<script>DoxygenAwesomeDarkModeToggle.init()</script>
</head>" page_head "${page_head}")
file(WRITE ${doc_dir}/header.html "${page_head}")

list(JOIN headers "\" \\\n                         \"" header_list)
list(JOIN guides "\" \\\n                         \"" guide_list)
list(JOIN plots "\" \\\n                         \"" plot_list)
configure_file(${sources}/Doxyfile.in ${doc_dir}/Doxyfile @ONLY)

file(GLOB tools CONFIGURE_DEPENDS ${sources}/*)
set(built_from ${headers} ${guides} ${plots} ${drawn} ${tools})
set(man_dir ${doc_dir}/man3)
add_custom_command(OUTPUT ${doc_dir}/html/index.html
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${doc_dir}/html
  COMMAND ${ZQPLATFORM_DOXYGEN} ${doc_dir}/Doxyfile
  # Pages of directories: nothing leads to them, and their names depend on where the sources are.
  COMMAND find ${doc_dir}/html -name dir_*.html -delete
  DEPENDS ${built_from} ${doc_dir}/Doxyfile
  WORKING_DIRECTORY ${sources}
  COMMENT "Writing the reference to ${doc_dir}/html" VERBATIM)
add_custom_command(OUTPUT ${man_dir}.names
  COMMAND sh ${sources}/manpages ${PROJECT_VERSION} ${man_dir} ${headers}
  DEPENDS ${headers} ${tools}
  COMMENT "Writing the manual pages to ${man_dir}" VERBATIM)
add_custom_target(doc ALL DEPENDS ${doc_dir}/html/index.html ${man_dir}.names)

if(ZQPLATFORM_INSTALL)
  install(DIRECTORY ${doc_dir}/html DESTINATION ${CMAKE_INSTALL_DOCDIR})
  install(DIRECTORY ${man_dir}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
endif()

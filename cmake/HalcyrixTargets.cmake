# Options of all targets: warnings and the configured texts.

list(TRANSFORM HALCYRIX_UPDATE_HOSTS REPLACE "(.+)" "\"\\1\"" OUTPUT_VARIABLE quoted_hosts)
list(JOIN quoted_hosts ", " HALCYRIX_UPDATE_HOST_LITERALS)
list(JOIN HALCYRIX_UPDATE_HOSTS "\\n" HALCYRIX_UPDATE_HOST_LINES)
configure_file(cmake/halcyrix_config.h.in config/halcyrix_config.h @ONLY)

add_library(halcyrix_options INTERFACE)
target_include_directories(halcyrix_options INTERFACE ${PROJECT_BINARY_DIR}/config)
target_compile_definitions(halcyrix_options INTERFACE _FILE_OFFSET_BITS=64)
# Assertions stay on in every build: a broken invariant must stop the program before it writes files.
target_compile_options(
  halcyrix_options INTERFACE -UNDEBUG
                             -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                             $<$<BOOL:${HALCYRIX_WERROR}>:-Werror>)
# GCC 12 warns of its own string concatenation when it optimises most (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(halcyrix_options INTERFACE -Wno-restrict)
endif()

# halcyrix_library(NAME SOURCES file... LINKS target...): the folder that this is called in.
#
# The include path of a library holds a link to its own folder and nothing else, so a file sees only
# the folders of the libraries that its own one links.
function(halcyrix_library name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${arg_SOURCES})
  get_filename_component(folder ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  set(root ${PROJECT_BINARY_DIR}/include/${name})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${folder} SYMBOLIC)
  target_include_directories(${name} PUBLIC ${root})
  target_link_libraries(${name} PUBLIC halcyrix_options ${arg_LINKS})
endfunction()

# How this project's targets are made. One library for each folder of src/, one
# test binary for each folder of tests/; both link only what they declare, so
# that a call against the direction of the layers fails at link time.

include(KrtLayers)

add_library(krt_options INTERFACE)
target_compile_options(
  krt_options
  INTERFACE -Wall -Wextra -Wshadow -Wconversion $<$<BOOL:${KRT_WERROR}>:-Werror>)
# GCC 12 sees an overlap in string concatenations at -O3 that there is not.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION
                                          VERSION_LESS 13)
  target_compile_options(krt_options INTERFACE -Wno-restrict)
endif()
target_compile_definitions(krt_options INTERFACE _GNU_SOURCE)
target_include_directories(krt_options INTERFACE ${PROJECT_SOURCE_DIR}/src)

# krt_library(<folder> SOURCES <file>... [DEPENDS <library>...])
# Makes the static library krt_<folder>, with "_" for "/".
function(krt_library folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
  string(REPLACE / _ name ${folder})
  add_library(krt_${name} STATIC ${arg_SOURCES})
  target_link_libraries(krt_${name} PUBLIC ${arg_DEPENDS} PRIVATE krt_options)
  krt_note_layer(${folder} ${arg_DEPENDS})
endfunction()

# krt_program(<name> SOURCES <file>... [DEPENDS <library>...])
function(krt_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_DEPENDS} krt_options)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY
                                           ${PROJECT_BINARY_DIR}/bin)
endfunction()

# krt_test(<folder> SOURCES <file>... [DEPENDS <library>...])
# Makes the test binary <folder>_test, with "_" for "/", and finds its tests one by
# one. A *_test.cc of the folder that is not listed stops the build: a test that is not in the
# build does not exist.
function(krt_test folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;DEPENDS")
  string(REPLACE / _ name ${folder})
  file(GLOB found RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} CONFIGURE_DEPENDS
       *_test.cc)
  foreach(file IN LISTS found)
    if(NOT file IN_LIST arg_SOURCES)
      message(FATAL_ERROR "tests/${folder}/${file} is not listed in krt_test()")
    endif()
  endforeach()
  add_executable(${name}_test ${arg_SOURCES})
  target_include_directories(${name}_test PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name}_test PRIVATE ${arg_DEPENDS} krt_options
                                             krt_test_main)
  gtest_discover_tests(
    ${name}_test
    TEST_PREFIX "${folder}."
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300)
endfunction()

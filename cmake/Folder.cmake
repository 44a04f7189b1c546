# One static library a folder of src/, and one test program a folder of tests/unit/.

# vci_folder(NAME USES folder... [LIBS target...])
#   The library vci_NAME from every source of the current folder. USES names the folders of src/
#   that it may include; tools/check-includes holds the sources to the same picture.
function(vci_folder name)
  cmake_parse_arguments(ARG "" "" "USES;LIBS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp
       ${CMAKE_CURRENT_SOURCE_DIR}/*/*.cpp)
  list(TRANSFORM ARG_USES PREPEND vci_)
  if(sources)
    add_library(vci_${name} STATIC ${sources})
    target_link_libraries(vci_${name} PUBLIC ${ARG_USES} ${ARG_LIBS} PRIVATE vci_src_flags)
    target_include_directories(vci_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  else() # headers only
    add_library(vci_${name} INTERFACE)
    target_link_libraries(vci_${name} INTERFACE ${ARG_USES} ${ARG_LIBS})
    target_include_directories(vci_${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
  endif()
endfunction()

# vci_unit_tests(NAME LIBS target...)
#   The program unit_NAME from every *.cpp of tests/unit/NAME; each of its tests is one for ctest.
function(vci_unit_tests name)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(unit_${name} ${sources})
  target_include_directories(unit_${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/unit)
  target_link_libraries(unit_${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock
                        GTest::gtest_main vci_flags)
  # What is tested is built as the preset says; the tests themselves so that they compile in half
  # the time. g++'s ThreadSanitizer takes some of them for races when they are not optimised at all.
  if(NOT VCI_SANITIZE STREQUAL "thread")
    target_compile_options(unit_${name} PRIVATE -O0)
  endif()
  # Half of what a compiler reads for a test is the framework: read once, by the first program.
  get_property(first GLOBAL PROPERTY vci_first_unit_tests)
  if(first)
    target_precompile_headers(unit_${name} REUSE_FROM ${first})
  else()
    target_precompile_headers(unit_${name} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
    set_property(GLOBAL PROPERTY vci_first_unit_tests unit_${name})
  endif()
  gtest_discover_tests(unit_${name} DISCOVERY_MODE PRE_TEST TEST_PREFIX ${name}.
                       PROPERTIES TIMEOUT 120)
endfunction()

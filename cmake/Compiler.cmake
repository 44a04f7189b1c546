# Flags of every target, and the compiler cache where one is installed.

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # What it must be told before it keeps objects that use a precompiled header.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

add_library(vci_flags INTERFACE)
target_compile_options(vci_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  # Log lines carry the path of the source: the path inside the tree, not that of a build machine.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(CCACHE_PROGRAM AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(vci_flags INTERFACE -fpch-preprocess)
endif()
if(VCI_SANITIZE)
  target_compile_options(vci_flags INTERFACE
    -fsanitize=${VCI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vci_flags INTERFACE -fsanitize=${VCI_SANITIZE})
endif()

# Of src/, which the fuzzers search: with coverage to steer by. It costs the compiler as much as the
# sanitizers do.
add_library(vci_src_flags INTERFACE)
target_link_libraries(vci_src_flags INTERFACE vci_flags)
if(VCI_FUZZ)
  target_compile_options(vci_src_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

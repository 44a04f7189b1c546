# Flags of every target, and the compiler cache where one is installed.

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_library(vci_flags INTERFACE)
target_compile_options(vci_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  # Log lines carry the path of the source: the path inside the tree, not that of a build machine.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(VCI_FUZZ)
  target_compile_options(vci_flags INTERFACE -fsanitize=fuzzer-no-link) # coverage for the fuzzers
endif()
if(VCI_SANITIZE)
  target_compile_options(vci_flags INTERFACE
    -fsanitize=${VCI_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vci_flags INTERFACE -fsanitize=${VCI_SANITIZE})
endif()

# What every target of this project has in common: the language, the warnings, the sanitizers.

add_library(corvane_options INTERFACE)
target_compile_features(corvane_options INTERFACE cxx_std_20)
target_compile_options(
  corvane_options INTERFACE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
                            -Wold-style-cast -Woverloaded-virtual)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees overlapping copies in operator+(const char*, std::string&&) that are none (its bug 105651).
  target_compile_options(corvane_options INTERFACE -Wno-restrict)
endif()
if(CORVANE_SANITIZE)
  target_compile_options(corvane_options INTERFACE -fsanitize=${CORVANE_SANITIZE} -fno-omit-frame-pointer
                                                   -fno-sanitize-recover=all)
  # Warnings are judged in the other builds: in instrumented code GCC 12 sees array bounds crossed that are not.
  target_compile_options(corvane_options INTERFACE -Wno-error)
  target_link_options(corvane_options INTERFACE -fsanitize=${CORVANE_SANITIZE})
endif()

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# corvane_target(<target>): applies the common options to a target that exists.
function(corvane_target target)
  target_link_libraries(${target} PRIVATE corvane_options)
endfunction()

# What runs for every command is spread over many small files; optimized across them when it is linked, a command of one
# block takes about a sixth less time. The objects hold ordinary code, too, so that tests are linked as quickly as ever.
set(corvane_can_optimize_links FALSE)
if(CORVANE_OPTIMIZE_LINKS AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT CORVANE_SANITIZE)
  set(corvane_can_optimize_links TRUE)
endif()

# corvane_hot_library(<target>): what runs for every command or block.
function(corvane_hot_library target)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    # What every x86 server since 2009 has. Wider instructions are chosen when the program runs.
    target_compile_options(${target} PRIVATE -march=x86-64-v2)
  endif()
  if(corvane_can_optimize_links)
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-flto=auto> $<$<CONFIG:Release>:-ffat-lto-objects>)
  endif()
  corvane_profile_library(${target})
endfunction()

# corvane_cold_library(<target>): what runs before and after a test, and whose headers' templates take long to optimize.
function(corvane_cold_library target)
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O1>)
endfunction()

# corvane_optimize_link(<target>): a program or shared library that is optimized across the hot libraries in it.
function(corvane_optimize_link target)
  if(corvane_can_optimize_links)
    target_link_options(${target} PRIVATE $<$<CONFIG:Release>:-flto=auto>)
  endif()
  corvane_profile_link(${target})
endfunction()

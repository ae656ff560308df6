# The trained build (docs/hacking.md): a recording build counts which ways its code takes while it tests drives, and
# another one is compiled by these counts. Both are only about the libraries that run for every command or block.
set(CORVANE_PROFILE "" CACHE STRING "record: counts which ways the code takes; use: compiles by that; empty: neither")
set_property(CACHE CORVANE_PROFILE PROPERTY STRINGS "" record use)
set(CORVANE_PROFILE_DIR ${PROJECT_SOURCE_DIR}/build/profile CACHE PATH "Folder of the counts")

set(corvane_profiles)
if(NOT CORVANE_PROFILE STREQUAL "")
  if(NOT CORVANE_PROFILE MATCHES "^(record|use)$")
    message(FATAL_ERROR "CORVANE_PROFILE is '${CORVANE_PROFILE}', but may only be record, use or empty")
  endif()
  # From 12 on GCC can leave the build folder out of the names of profiles.
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU" OR CMAKE_CXX_COMPILER_VERSION VERSION_LESS 12)
    message(FATAL_ERROR "CORVANE_PROFILE needs GCC 12 or newer, and the compiler is "
                        "${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}")
  endif()
endif()

if(CORVANE_PROFILE STREQUAL "use")
  file(GLOB corvane_profiles ${CORVANE_PROFILE_DIR}/*.gcda)
  if(NOT corvane_profiles)
    message(FATAL_ERROR "CORVANE_PROFILE is use, but ${CORVANE_PROFILE_DIR} has no profiles (*.gcda): "
                        "scripts/train.sh records them and makes the whole trained build")
  endif()
  # Other profiles make other objects: the build looks for changed ones, and the digest makes everything that depends
  # on them be compiled again, by a cache of the compiler's too.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${corvane_profiles})
  set(digests)
  foreach(profile ${corvane_profiles})
    file(SHA256 ${profile} digest)
    string(APPEND digests "${profile} ${digest}\n")
  endforeach()
  string(SHA256 corvane_profile_digest "${digests}")
endif()

# corvane_profile_library(<target>): a library or object library whose ways are counted, or that is compiled by what was
# counted.
function(corvane_profile_library target)
  if(CORVANE_PROFILE STREQUAL "record")
    # Drives have threads of their own, which count in the same places.
    target_compile_options(
      ${target} PRIVATE -fprofile-generate=${CORVANE_PROFILE_DIR} -fprofile-prefix-path=${PROJECT_BINARY_DIR}
                        -fprofile-update=atomic)
    # Whatever has the library in it needs the counters' own library.
    target_link_options(${target} INTERFACE -fprofile-generate)
  elseif(CORVANE_PROFILE STREQUAL "use")
    # That a source has no profile, or was changed since, is a warning and so an error. What no training reaches, such
    # as the commands of drives that only other machines have, is compiled as ever, and not for size.
    target_compile_options(
      ${target} PRIVATE -fprofile-use=${CORVANE_PROFILE_DIR} -fprofile-prefix-path=${PROJECT_BINARY_DIR}
                        -fprofile-partial-training)
    target_compile_definitions(${target} PRIVATE CORVANE_PROFILE_DIGEST="${corvane_profile_digest}")
  endif()
endfunction()

# corvane_profile_link(<target>): a program or shared library that is optimized across the libraries above.
function(corvane_profile_link target)
  if(CORVANE_PROFILE STREQUAL "use")
    # With more of it inlined, GCC 12 sees strings copied past their ends that are not, and says so while it links.
    target_link_options(${target} PRIVATE -Wno-stringop-overflow -Wno-stringop-overread)
  endif()
endfunction()

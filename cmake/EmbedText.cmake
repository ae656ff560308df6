# corvane_embed_text(<target> <header> NAME <variable> FILES <files…>): a string_view in namespace corvane::host::report that
# the header declares, with the content of the files, one behind the other.
set(corvane_embed_script ${CMAKE_CURRENT_LIST_DIR}/EmbedTextScript.cmake)

function(corvane_embed_text target header)
  cmake_parse_arguments(arg "" "NAME" "FILES" ${ARGN})
  list(TRANSFORM arg_FILES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${arg_NAME}.cpp)
  add_custom_command(
    OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} "-DOUTPUT=${output}" "-DHEADER=${header}" "-DNAME=${arg_NAME}" "-DFILES=${arg_FILES}" -P
            ${corvane_embed_script}
    DEPENDS ${arg_FILES} ${corvane_embed_script}
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
endfunction()

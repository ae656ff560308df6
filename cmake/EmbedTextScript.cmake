# Run by corvane_embed_text: writes the C++ source.
set(literals "")
foreach(file ${FILES})
  file(READ ${file} content)
  if(content MATCHES "\\)corvane\"")
    message(FATAL_ERROR "${file} holds the end of the literal that it becomes")
  endif()
  string(APPEND literals "\n    R\"corvane(${content})corvane\"")
endforeach()
file(WRITE ${OUTPUT} "#include \"${HEADER}\"\n\nnamespace corvane::host::report {\n\nconst std::string_view ${NAME} =${literals};\n\n"
     "}  // namespace corvane::host::report\n")

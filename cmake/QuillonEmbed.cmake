# quillon_embed(<folder> <file> <namespace> <constant>)
#
# Embeds a text file of a folder of the program into that folder's library, as the constant
#
#   namespace <namespace> { extern const char <constant>[]; }
#
# which a header of the folder must declare. The build runs this file as a script to write the C++
# source, whose content depends on the text only.

if(CMAKE_SCRIPT_MODE_FILE)
  file(READ ${INPUT} text)
  get_filename_component(name ${INPUT} NAME)
  file(WRITE ${OUTPUT}
    "// Generated from ${name}.\n"
    "namespace ${NAMESPACE} {\n"
    "extern const char ${CONSTANT}[];\n"
    "const char ${CONSTANT}[] = R\"EMBEDDED(${text})EMBEDDED\";\n"
    "}  // namespace ${NAMESPACE}\n")
  return()
endif()

set(QUILLON_EMBED_SCRIPT ${CMAKE_CURRENT_LIST_FILE})
function(quillon_embed folder file namespace constant)
  string(REPLACE "/" "-" name ${folder})
  set(input ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${file}.cc)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -D INPUT=${input} -D OUTPUT=${output} -D NAMESPACE=${namespace}
      -D CONSTANT=${constant} -P ${QUILLON_EMBED_SCRIPT}
    DEPENDS ${input} ${QUILLON_EMBED_SCRIPT}
    VERBATIM)
  target_sources(quillon-${name} PRIVATE ${output})
endfunction()

# Makes files part of a program, so that it needs none of them when it runs.
#
#     embed_file(TARGET SYMBOL FILE)   adds a source to TARGET that defines `extern const std::string_view SYMBOL`, with
#                                      its namespaces, as the content of FILE; made anew whenever FILE changes
#
# The source is made while building, by this same file run as a script.

if(CMAKE_SCRIPT_MODE_FILE)
    file(READ "${INPUT}" bytes HEX)
    string(REGEX REPLACE "(..)" "\\\\x\\1" escaped "${bytes}")
    string(REGEX MATCH "^(.*)::([^:]+)$" matched "${SYMBOL}")
    file(WRITE "${OUTPUT}" "#include <string_view>\n\n"
        "namespace ${CMAKE_MATCH_1} {\n\n"
        "namespace {\n\nconstexpr char TEXT[] = \"${escaped}\";\n\n}  // namespace\n\n"
        "extern const std::string_view ${CMAKE_MATCH_2};\n"
        "const std::string_view ${CMAKE_MATCH_2}(TEXT, sizeof TEXT - 1);\n\n"
        "}  // namespace ${CMAKE_MATCH_1}\n")
    return()
endif()

set(EMBED_FILE_SCRIPT "${CMAKE_CURRENT_LIST_FILE}")

function(embed_file target symbol file)
    string(REPLACE "::" "_" name "${symbol}")
    set(source "${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp")
    add_custom_command(OUTPUT "${source}"
        COMMAND ${CMAKE_COMMAND} "-DINPUT=${file}" "-DOUTPUT=${source}" "-DSYMBOL=${symbol}" -P "${EMBED_FILE_SCRIPT}"
        DEPENDS "${file}" "${EMBED_FILE_SCRIPT}"
        COMMENT "Embedding ${file}"
        VERBATIM)
    target_sources(${target} PRIVATE "${source}")
endfunction()

# The tool's man page and completions: the tool that was just built writes them, since its parser is
# what they tell about.
if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
    message(STATUS "The tool for ${CMAKE_SYSTEM_PROCESSOR} does not run here: neither man page nor "
                   "completions are made (CMAKE_CROSSCOMPILING_EMULATOR would help)")
    return()
endif()
if(FRAMEWELL_SANITIZE)
    return()  # not for installing, and a sanitizer's runtime may refuse to start
endif()

set(tool_documents_dir "${PROJECT_BINARY_DIR}/documents")
file(MAKE_DIRECTORY "${tool_documents_dir}")
set(tool_documents "")

# framewell_tool_document(NAME FOLDER ARGUMENT...): the file NAME is what the tool prints for these
# arguments; it is installed in FOLDER.
function(framewell_tool_document name folder)
    set(file "${tool_documents_dir}/${name}")
    # By way of a second name: a tool that fails half way leaves nothing behind that looks whole. Run
    # by its target's name, so that CMake puts the emulator in front where there is one.
    add_custom_command(OUTPUT "${file}"
                       COMMAND framewell_tool ${ARGN} > "${file}.new"
                       COMMAND "${CMAKE_COMMAND}" -E rename "${file}.new" "${file}"
                       DEPENDS framewell_tool
                       COMMENT "Writing ${name}")
    if(FRAMEWELL_DEBIAN AND name MATCHES "\\.1$")  # Debian has its manual compressed
        find_program(FRAMEWELL_GZIP gzip REQUIRED)
        add_custom_command(OUTPUT "${file}.gz"
                           COMMAND "${FRAMEWELL_GZIP}" -9 -n -c "${file}" > "${file}.gz"
                           DEPENDS "${file}")
        set(file "${file}.gz")
    endif()
    set(tool_documents ${tool_documents} "${file}" PARENT_SCOPE)
    install(FILES "${file}" DESTINATION "${folder}" COMPONENT tool)
endfunction()

framewell_tool_document(framewell.1 "${CMAKE_INSTALL_MANDIR}/man1" --man)
framewell_tool_document(framewell "${CMAKE_INSTALL_DATADIR}/bash-completion/completions"
                        --completion bash)
framewell_tool_document(_framewell "${FRAMEWELL_ZSH_DIR}" --completion zsh)
framewell_tool_document(framewell.fish "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d"
                        --completion fish)
add_custom_target(framewell_tool_documents ALL DEPENDS ${tool_documents})

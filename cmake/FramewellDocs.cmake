# The target docs: one set of HTML pages of the public headers and the documents, in the build folder.
# It fails on every warning, so what is public and not documented does not pass.
find_package(Doxygen REQUIRED)
set(FRAMEWELL_DOCS_DIR "${PROJECT_BINARY_DIR}/docs")
configure_file("${PROJECT_SOURCE_DIR}/docs/Doxyfile.in" "${PROJECT_BINARY_DIR}/Doxyfile" @ONLY)
add_custom_target(docs
                  COMMAND Doxygen::doxygen "${PROJECT_BINARY_DIR}/Doxyfile"
                  COMMENT "Pages: ${FRAMEWELL_DOCS_DIR}/html/index.html"
                  VERBATIM)

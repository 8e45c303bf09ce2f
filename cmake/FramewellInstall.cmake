# What `cmake --install` puts where: headers, libraries, tool with its man page and completions, CMake
# package, pkg-config file, documents. The components are those of the packages: library,
# development, tool.
include(CMakePackageConfigHelpers)

set(framewell_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/framewell")
set(FRAMEWELL_ZSH_DIR "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" CACHE STRING
    "Where zsh looks for completions; Debian's packages have a folder of their own")

install(TARGETS framewell EXPORT framewellTargets
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT library
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT library
                NAMELINK_COMPONENT development
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
install(EXPORT framewellTargets NAMESPACE framewell::
        DESTINATION "${framewell_package_dir}" COMPONENT development)
if(TARGET framewell_static)
    install(TARGETS framewell_static EXPORT framewellStaticTargets
            ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
    install(EXPORT framewellStaticTargets NAMESPACE framewell::
            DESTINATION "${framewell_package_dir}" COMPONENT development)
endif()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/framewell"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development
        FILES_MATCHING PATTERN "*.h")

configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/framewellConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/framewellConfig.cmake"
    INSTALL_DESTINATION "${framewell_package_dir}")
write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/framewellConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/framewellConfig.cmake"
              "${PROJECT_BINARY_DIR}/framewellConfigVersion.cmake"
              "${PROJECT_SOURCE_DIR}/cmake/FramewellFFmpeg.cmake"
        DESTINATION "${framewell_package_dir}" COMPONENT development)

# pkg-config: the shared library brings FFmpeg along by itself, the static one needs it on the host's
# command line. FFmpeg's libraries stand there by name and not as packages that are required:
# --static would then ask for everything that a static FFmpeg is made of, where there is a shared one.
set(framewell_pc_rest "")
foreach(folder IN LISTS FRAMEWELL_FFMPEG_LIBRARY_DIRS)
    if(NOT folder IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
        string(APPEND framewell_pc_rest " -L${folder}")
    endif()
endforeach()
foreach(library IN LISTS FRAMEWELL_FFMPEG_LIBRARIES)
    string(APPEND framewell_pc_rest " -l${library}")
endforeach()
string(APPEND framewell_pc_rest " -lstdc++ -lm -pthread")
if(FRAMEWELL_SHARED)
    set(framewell_pc_libs "\nLibs.private:${framewell_pc_rest}")
else()
    set(framewell_pc_libs "${framewell_pc_rest}")
endif()
# Found from the file itself, so that what is installed can be moved.
set(framewell_pc_prefix "${CMAKE_INSTALL_PREFIX}")
set(framewell_pc_libdir "${CMAKE_INSTALL_FULL_LIBDIR}")
set(framewell_pc_includedir "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    file(RELATIVE_PATH up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    string(REGEX REPLACE "/$" "" up "${up}")
    set(framewell_pc_prefix "\${pcfiledir}/${up}")
    set(framewell_pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
    set(framewell_pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/framewell.pc.in" "${PROJECT_BINARY_DIR}/framewell.pc"
               @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/framewell.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

file(GLOB framewell_documents "${PROJECT_SOURCE_DIR}/docs/*.md")
install(FILES ${framewell_documents}
        DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs" COMPONENT development)
set(framewell_documents "${PROJECT_SOURCE_DIR}/README.md")
if(NOT FRAMEWELL_DEBIAN)  # whose packages have it under another name
    list(APPEND framewell_documents "${PROJECT_SOURCE_DIR}/CHANGELOG.md")
endif()
install(FILES ${framewell_documents}
        DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT development)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples"
        DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT development)

if(TARGET framewell_tool)
    install(TARGETS framewell_tool
            RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tool)
    include(FramewellToolDocuments)
endif()

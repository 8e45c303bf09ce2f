# What `cmake --install` puts where: headers, library, tool, CMake package and pkg-config file.
include(CMakePackageConfigHelpers)

set(framewell_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/framewell")

install(TARGETS framewell EXPORT framewellTargets
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
if(TARGET framewell_tool)
    install(TARGETS framewell_tool RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/framewell"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.h")

install(EXPORT framewellTargets NAMESPACE framewell:: DESTINATION "${framewell_package_dir}")
configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/framewellConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/framewellConfig.cmake"
    INSTALL_DESTINATION "${framewell_package_dir}")
write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/framewellConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/framewellConfig.cmake"
              "${PROJECT_BINARY_DIR}/framewellConfigVersion.cmake"
              "${PROJECT_SOURCE_DIR}/cmake/FramewellFFmpeg.cmake"
        DESTINATION "${framewell_package_dir}")

# pkg-config: the shared library brings FFmpeg along by itself, the static one needs it on the
# host's command line.
set(framewell_pc_ffmpeg "libavformat libavcodec libavfilter libavutil libswscale libswresample")
if(FRAMEWELL_SHARED)
    set(framewell_pc_requires "Requires.private: ${framewell_pc_ffmpeg}")
    set(framewell_pc_libs "")
else()
    set(framewell_pc_requires "Requires: ${framewell_pc_ffmpeg}")
    set(framewell_pc_libs " -lstdc++ -pthread")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/framewell.pc.in" "${PROJECT_BINARY_DIR}/framewell.pc"
               @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/framewell.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

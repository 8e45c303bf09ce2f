# The Debian packages that scripts/package makes with CPack, one of each component: library,
# development, tool. What Debian wants beside that is made here, too: the compressed list of changes
# and the copyright of every package.
option(FRAMEWELL_DEBIAN "Install as Debian's packages have it; scripts/package sets it" OFF)
if(NOT FRAMEWELL_DEBIAN)
    return()
endif()
find_program(FRAMEWELL_GZIP gzip REQUIRED)
set(FRAMEWELL_MAINTAINER "The framewell authors <framewell@users.invalid>" CACHE STRING
    "Who answers for the packages: name and address")

set(debian_release 1)
set(debian_version "${PROJECT_VERSION}-${debian_release}")
set(debian_library "libframewell${PROJECT_VERSION_MAJOR}")
set(debian_development libframewell-dev)
set(debian_tool framewell-tools)

# framewell_compress(FROM TO): without name and date, so that the same input gives the same file.
function(framewell_compress from to)
    execute_process(COMMAND "${FRAMEWELL_GZIP}" -9 -n -c "${from}"
                    OUTPUT_FILE "${to}" RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "gzip failed on ${from}")
    endif()
endfunction()

set(debian_dir "${PROJECT_BINARY_DIR}/debian")
file(MAKE_DIRECTORY "${debian_dir}")
# In the form that Debian's tools read: "Sun, 22 Nov 2026 12:00:00 +0000".
set(ENV{LC_ALL} C)
execute_process(COMMAND date -u -R -d "${FRAMEWELL_RELEASE_DATE} 12:00"
                OUTPUT_VARIABLE debian_date OUTPUT_STRIP_TRAILING_WHITESPACE
                RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "CHANGELOG.md dates the release with \"${FRAMEWELL_RELEASE_DATE}\"")
endif()
string(SUBSTRING "${FRAMEWELL_RELEASE_DATE}" 0 4 debian_year)
configure_file("${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in" "${debian_dir}/changelog" @ONLY)
configure_file("${PROJECT_SOURCE_DIR}/cmake/debian/copyright.in" "${debian_dir}/copyright" @ONLY)
framewell_compress("${debian_dir}/changelog" "${debian_dir}/changelog.Debian.gz")
framewell_compress("${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${debian_dir}/changelog.gz")
foreach(component library development tool)
    install(FILES "${debian_dir}/changelog.Debian.gz" "${debian_dir}/changelog.gz"
                  "${debian_dir}/copyright"
            DESTINATION "share/doc/${debian_${component}}" COMPONENT ${component})
endforeach()

set(CPACK_PACKAGE_NAME framewell)
set(CPACK_PACKAGE_VENDOR "The framewell authors")
set(CPACK_PACKAGE_CONTACT "${FRAMEWELL_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development tool)
set(CPACK_COMPONENTS_GROUPING IGNORE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${debian_release})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tool's need of the library is a dependency between the components.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_TOOL_DEPENDS library)

# Hosts that were built with this version run with every later minor one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# The first line is the short form of each.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(about "\
framewell gives the exact picture that a media file shows at a time, and
the exact samples of a span of its sound, in any order of times and from
any number of threads.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${debian_library})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
file(WRITE "${debian_dir}/triggers" "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${debian_dir}/triggers")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "\
exact pictures and sound by time - shared library
${about}

This package holds the library that programs run with.")

# pkg-config names no package of FFmpeg, and the shared library brings FFmpeg's along: only who links
# the static library needs their development packages.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${debian_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS
    "libavcodec-dev, libavfilter-dev, libavformat-dev, libavutil-dev, libswresample-dev, \
libswscale-dev, pkg-config")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "\
exact pictures and sound by time - development files
${about}

This package holds what programs are built with: headers, the static
library, files for CMake and pkg-config, documents and examples. Linking
the static library also takes the development packages of FFmpeg.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ${debian_tool})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION video)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "\
exact pictures and sound by time - command-line tool
${about}

This package holds the tool framewell, which writes pictures, sound,
covers, contact sheets and waveforms, with its manual page and completions
for bash, zsh and fish.")

include(CPack)

# Finds the FFmpeg libraries and makes the target FFmpeg::libraries. Used by the build and, for hosts
# that link the static library, by the installed package.

# framewell_find_ffmpeg(LIBRARY LOWEST BEYOND ...): finds these libraries through pkg-config. LOWEST
# is the oldest version that is accepted, BEYOND the first major version that is not. One message
# tells of all libraries that are missing or outside of this window.
function(framewell_find_ffmpeg)
    find_package(PkgConfig REQUIRED)
    set(libraries "")
    set(complaints "")
    set(arguments ${ARGN})
    while(arguments)
        list(POP_FRONT arguments library lowest beyond)
        list(APPEND libraries "${library}")
        pkg_check_modules(FRAMEWELL_FFMPEG_${library} QUIET "${library}")
        set(wanted "wanted ${lowest} or newer, but older than ${beyond}")
        if(NOT FRAMEWELL_FFMPEG_${library}_FOUND)
            string(APPEND complaints "  ${library}: not found, ${wanted}\n")
            continue()
        endif()
        set(found "${FRAMEWELL_FFMPEG_${library}_VERSION}")
        if(found VERSION_LESS lowest OR NOT found VERSION_LESS beyond)
            string(APPEND complaints "  ${library}: found ${found}, ${wanted}\n")
        endif()
    endwhile()
    if(complaints)
        message(FATAL_ERROR "framewell works with FFmpeg 4.2 to 7.1. What pkg-config knows of it "
                            "here does not fit:\n${complaints}"
                            "On Debian and its like, scripts/install-deps installs one that does; "
                            "PKG_CONFIG_PATH leads to another.")
    endif()
    pkg_check_modules(FRAMEWELL_FFMPEG REQUIRED ${libraries})

    # SYSTEM, so that FFmpeg's headers raise no warnings of ours.
    add_library(FFmpeg::libraries INTERFACE IMPORTED)
    target_include_directories(FFmpeg::libraries SYSTEM INTERFACE
                               ${FRAMEWELL_FFMPEG_INCLUDE_DIRS})
    # Until 4.4 FFmpeg's headers insist on it, in C++ whose library has had these macros since 2011.
    target_compile_definitions(FFmpeg::libraries INTERFACE __STDC_CONSTANT_MACROS)
    target_link_directories(FFmpeg::libraries INTERFACE ${FRAMEWELL_FFMPEG_LIBRARY_DIRS})
    target_link_libraries(FFmpeg::libraries INTERFACE ${FRAMEWELL_FFMPEG_LIBRARIES})
endfunction()

if(NOT TARGET FFmpeg::libraries)
    framewell_find_ffmpeg(
        libavformat   58.29 62
        libavcodec    58.54 62
        libavfilter   7.57  11
        libavutil     56.31 60
        libswscale    5.5   9
        libswresample 3.5   6)
endif()

# framewell_precompile(TARGET HEADER...): compiles these headers once for all sources of a target, if
# FRAMEWELL_PCH asks for it.
function(framewell_precompile target)
    if(FRAMEWELL_PCH)
        target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
endfunction()

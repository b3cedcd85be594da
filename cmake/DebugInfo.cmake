# How much debug information the compiler writes (KESTRION_DEBUG_INFO):
#   lines  line tables only (-g1): backtraces, sanitizer reports and profiles keep function, file
#          and line, a debugger steps through lines, but shows no variables. The default in a
#          RelWithDebInfo tree, where it saves about a fifth of the product's compile time.
#   full   the build type's own (-g in Debug and RelWithDebInfo). The default in a Debug tree,
#          which is built to be debugged; a RelWithDebInfo tree gets it with -DKESTRION_DEBUG_INFO=full.
# The test programs' own code is compiled without debug information in the release tree
# (kestrion_test_code_options in cmake/Testing.cmake), whatever this says.
if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    set(kestrion_default_debug_info lines)
else()
    set(kestrion_default_debug_info full)
endif()
set(KESTRION_DEBUG_INFO "${kestrion_default_debug_info}" CACHE STRING "Debug information: lines or full")
set_property(CACHE KESTRION_DEBUG_INFO PROPERTY STRINGS lines full)
if(KESTRION_DEBUG_INFO STREQUAL "lines")
    if(CMAKE_BUILD_TYPE MATCHES "^(RelWithDebInfo|Debug)$")
        add_compile_options(-g1)
    endif()
elseif(NOT KESTRION_DEBUG_INFO STREQUAL "full")
    message(FATAL_ERROR "KESTRION_DEBUG_INFO is lines or full, not '${KESTRION_DEBUG_INFO}'")
endif()

# Precompiled headers: the third-party and standard headers that most files include, directly or
# through the project's headers, compiled once per build instead of once per source file.
#
# The product's libraries reuse one of two headers built in pch/ (kestrion_product_pch); the tests
# reuse theirs (tests/support/pch). A precompiled header is used only when a file is compiled with
# the options it was built with, so the libraries are grouped by theirs. -Winvalid-pch (an error
# with the project's warnings) says so if a target's options ever stop matching, instead of
# compiling slowly in silence. KESTRION_PRECOMPILED_HEADERS=OFF builds without them (to check that
# every file includes what it uses).
option(KESTRION_PRECOMPILED_HEADERS "Compile with precompiled headers" ON)

# The standard headers that most files include: every precompiled header of the project holds them.
set(KESTRION_PCH_STANDARD_HEADERS
    <algorithm> <array> <atomic> <chrono> <cmath> <condition_variable> <cstdint> <cstring>
    <deque> <fstream> <functional> <limits> <map> <memory> <mutex> <optional> <set> <sstream>
    <string> <thread> <utility> <vector>)

# ccache caches a compilation that uses a precompiled header only with this sloppiness; every
# compilation of the target runs under it when the build uses ccache.
function(kestrion_ccache_for_pch target)
    get_target_property(launcher ${target} CXX_COMPILER_LAUNCHER)
    if(launcher MATCHES "ccache")
        set_target_properties(${target} PROPERTIES CXX_COMPILER_LAUNCHER
            "${CMAKE_COMMAND};-E;env;CCACHE_SLOPPINESS=pch_defines,time_macros;${launcher}")
    endif()
endfunction()

# kestrion_product_pch(<target> CORE|WIDGETS)
# CORE: the standard headers and Eigen, for any library of the product. WIDGETS: those and Qt's
# widget headers, for the libraries that link Qt5::Widgets. Neither suits a target compiled with
# other code generation options (hidden visibility, an executable's -fPIE): such a target
# precompiles its own or none.
function(kestrion_product_pch target kind)
    if(NOT KESTRION_PRECOMPILED_HEADERS)
        return()
    endif()
    if(kind STREQUAL "CORE")
        set(pch KestrionProductPch)
    elseif(kind STREQUAL "WIDGETS")
        set(pch KestrionWidgetsPch)
    else()
        message(FATAL_ERROR "kestrion_product_pch: ${target}: CORE or WIDGETS, not '${kind}'")
    endif()
    target_precompile_headers(${target} REUSE_FROM ${pch})
    target_compile_options(${target} PRIVATE -Winvalid-pch)
    kestrion_ccache_for_pch(${target})
endfunction()

# kestrion_own_pch(<target> <header>...)
# A precompiled header of the target's own, for a target whose code generation options no shared
# one matches (the simulated camera library and the Python module hide their symbols) and whose
# files are many or heavy enough to pay for one more compile.
function(kestrion_own_pch target)
    if(NOT KESTRION_PRECOMPILED_HEADERS)
        return()
    endif()
    target_precompile_headers(${target} PRIVATE ${ARGN})
    target_compile_options(${target} PRIVATE -Winvalid-pch)
    kestrion_ccache_for_pch(${target})
endfunction()

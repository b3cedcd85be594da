# Warnings as errors for the project's own targets. Third-party headers are included as
# system headers (Qt, Eigen, NLopt, nlohmann_json, GoogleTest), so they do not trip these.
function(kestrion_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual
        -Wno-unused-parameter -Werror)
    # Clang (the fuzz build) has no -Wshadow=local.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -Wshadow=local)
    endif()
endfunction()

# Adds each listed folder that holds a CMakeLists.txt, in the order given.
macro(kestrion_add_present_subdirectories)
    foreach(dir ${ARGN})
        if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
            add_subdirectory(${dir})
        endif()
    endforeach()
endmacro()

# Every target defined in `dir` and the folders below it, into `out`.
function(kestrion_targets_under dir out)
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    get_property(folders DIRECTORY ${dir} PROPERTY SUBDIRECTORIES)
    foreach(folder IN LISTS folders)
        kestrion_targets_under(${folder} below)
        list(APPEND targets ${below})
    endforeach()
    set(${out} ${targets} PARENT_SCOPE)
endfunction()

# Warnings as errors for the project's own targets. Third-party headers are included as
# system headers (Qt, Eigen, NLopt, nlohmann_json, GoogleTest), so they do not trip these.
function(kestrion_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow=local -Wnon-virtual-dtor -Woverloaded-virtual
        -Wno-unused-parameter -Werror)
endfunction()

# Adds each listed folder that holds a CMakeLists.txt, in the order given.
macro(kestrion_add_present_subdirectories)
    foreach(dir ${ARGN})
        if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
            add_subdirectory(${dir})
        endif()
    endforeach()
endmacro()

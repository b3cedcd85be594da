# Builds each probe of tests/layout: the first must compile, every other must fail because the
# header it includes is not on a host target's include roots (and for no other reason).
#   cmake -DBUILD_DIR=<build> -DPROBES=<target=header;...> -P CheckIncludeWalls.cmake
set(first TRUE)
foreach(probe IN LISTS PROBES)
    string(REPLACE "=" ";" probe "${probe}")
    list(GET probe 0 target)
    list(GET probe 1 header)
    execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD_DIR} --target ${target}
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(first)
        if(NOT result EQUAL 0)
            message(FATAL_ERROR "${target}: including ${header} from a host target should compile:\n${output}")
        endif()
        set(first FALSE)
        continue()
    endif()
    string(REPLACE "." "\\." pattern "${header}")
    # GCC: "<header>: No such file or directory"; clang: "'<header>' file not found".
    if(result EQUAL 0)
        message(FATAL_ERROR "${target}: a host target compiled a file including ${header}")
    elseif(NOT output MATCHES "${pattern}: No such file or directory" AND NOT output MATCHES "'${pattern}' file not found")
        message(FATAL_ERROR "${target}: failed, but not because ${header} is out of reach:\n${output}")
    endif()
    message(STATUS "${target}: ${header} is out of reach of host targets")
endforeach()

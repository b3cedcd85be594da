include(GoogleTest)

# The test programs' own code is compiled for a quick build in the release tree: without
# optimisation or debug information, which halves its compile time (the product's libraries that
# the tests exercise keep the build type's options). The sanitizer builds keep theirs: the address
# pass is a debug build already, and the thread and fuzz passes need their instrumented code as it is.
function(kestrion_test_code_options target)
    if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" AND ATRACSYS_SANITIZE STREQUAL "")
        target_compile_options(${target} PRIVATE -O0 -g0)
    endif()
endfunction()

# kestrion_add_test(name SOURCES a.cpp b.cpp LIBS lib... LABELS unit|integration|gui|slow|threads [TIMEOUT s]
#                   [COST n])
# One GoogleTest executable; each TEST is its own CTest case carrying the labels. COST (seconds a
# test takes, roughly) makes CTest start the long ones first, so that a long test does not run
# alone at the end of a parallel run (CTest learns the costs itself only after a first run).
function(kestrion_add_test name)
    cmake_parse_arguments(T "" "TIMEOUT;COST" "SOURCES;LIBS;LABELS;ENVIRONMENT" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    # The test files of a program are compiled a few at a time as one (a unity build): each of them
    # would otherwise compile GoogleTest's and the product's templates again. Their file-local names
    # (anonymous namespaces) must therefore differ within a program. GCC takes the included files
    # for headers and would warn of test fixtures in an anonymous namespace, which are file-local
    # here as intended.
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${name} PRIVATE -Wno-subobject-linkage)
    endif()
    kestrion_warnings(${name})
    kestrion_test_code_options(${name})
    # A test sees the headers of its own folder and of what it links (tests/support among them).
    file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
    kestrion_expose_headers(${name} PRIVATE ${folder})
    target_link_libraries(${name} PRIVATE ${T_LIBS} KestrionTestSupport GTest::gtest_main)
    # The tests' common headers, precompiled once (tests/support/pch). -Winvalid-pch (an error here)
    # says so if a test's options ever stop matching it, instead of compiling slowly in silence.
    if(TARGET KestrionTestPch)
        target_precompile_headers(${name} REUSE_FROM KestrionTestPch)
        target_compile_options(${name} PRIVATE -Winvalid-pch)
        kestrion_ccache_for_pch(${name})
    endif()
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    if(NOT T_COST)
        set(T_COST 0)
    endif()
    set(env "QT_QPA_PLATFORM=offscreen" ${T_ENVIRONMENT})
    # Discovered tests take a single label, so several labels are joined ("unit_threads");
    # ctest's -L and -LE match label regular expressions, so "-L threads" still selects it.
    string(REPLACE ";" "_" labels "${T_LABELS}")
    string(REPLACE ";" "\\;" env "${env}")
    if("threads" IN_LIST T_LABELS AND TARGET threads_tests)
        add_dependencies(threads_tests ${name})
    endif()
    gtest_discover_tests(${name}
        DISCOVERY_MODE PRE_TEST
        PROPERTIES LABELS "${labels}" TIMEOUT ${T_TIMEOUT} COST ${T_COST} ENVIRONMENT "${env}")
endfunction()

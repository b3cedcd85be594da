// Compiled only to build the tests' precompiled header (see CMakeLists.txt).

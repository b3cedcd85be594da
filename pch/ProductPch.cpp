// Compiled only to build a precompiled header of the product's libraries (see CMakeLists.txt).

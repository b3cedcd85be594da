# ATRACSYS_SANITIZE selects an instrumented build for the whole tree:
#   address  -> AddressSanitizer + UndefinedBehaviorSanitizer
#   thread   -> ThreadSanitizer
#   fuzz     -> libFuzzer + AddressSanitizer (clang only; builds the fuzz targets)
set(ATRACSYS_SANITIZE "" CACHE STRING "Sanitizer build: address, thread, fuzz or empty")
set_property(CACHE ATRACSYS_SANITIZE PROPERTY STRINGS "" address thread fuzz)

# The camera SDK's records are packed to one byte by contract, so their fields sit at odd
# addresses; reading them is fine on x86-64, and references to them (as test assertions take)
# are reported by the alignment check. That one check is left out; every other one stays.
if(ATRACSYS_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize=alignment -fno-omit-frame-pointer
                        -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(ATRACSYS_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(ATRACSYS_SANITIZE STREQUAL "fuzz")
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "ATRACSYS_SANITIZE=fuzz needs clang (configure with CXX=clang++)")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(NOT ATRACSYS_SANITIZE STREQUAL "")
    message(FATAL_ERROR "Unknown ATRACSYS_SANITIZE value '${ATRACSYS_SANITIZE}'")
endif()

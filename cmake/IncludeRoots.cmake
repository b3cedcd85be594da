# Include roots per target: a target sees the headers of its own folders and of the libraries it
# links, nothing else. There is no include path to the source root, so a file that includes a
# folder its target does not link ("atracsys/..." from the host) fails to compile.
#
#   kestrion_expose_headers(<target> [PRIVATE] <folder>...)
#
# <folder> is a path from the repository root ("host/core"). The target gets an include root of its
# own, <build>/include/<target>, holding at <folder> a symbolic link to the source folder, so that
# its files and its dependents keep including "host/core/Log.h". The root is PUBLIC (INTERFACE for
# an interface library): whoever links the target sees the folder. PRIVATE keeps it to the target
# (a library's internal folder, a test's own folder).
#
# A folder that holds a sub-folder with a CMakeLists.txt of its own (another library, as
# host/lib/trackingviews inside host/lib) is not linked whole: the root gets a real folder with a
# link per entry, leaving out those sub-folders, which their own library exposes.
#
# A new library: add_library(KestrionFoo ...), then kestrion_expose_headers(KestrionFoo host/foo)
# and target_link_libraries(KestrionFoo PUBLIC <what its headers include>). See docs/architecture.md.

function(_kestrion_link_entry original link)
    if(IS_SYMLINK "${link}")
        file(READ_SYMLINK "${link}" current)
        if(current STREQUAL original)
            return()
        endif()
        file(REMOVE "${link}")
    elseif(EXISTS "${link}")
        message(FATAL_ERROR "kestrion_expose_headers: ${link} exists and is not a link")
    endif()
    get_filename_component(parent "${link}" DIRECTORY)
    file(MAKE_DIRECTORY "${parent}")
    file(CREATE_LINK "${original}" "${link}" SYMBOLIC)
endfunction()

function(_kestrion_link_folder root folder)
    set(source "${PROJECT_SOURCE_DIR}/${folder}")
    if(NOT IS_DIRECTORY "${source}")
        message(FATAL_ERROR "kestrion_expose_headers: ${folder} is not a folder of the repository")
    endif()
    file(GLOB owned LIST_DIRECTORIES true RELATIVE "${source}" "${source}/*/CMakeLists.txt")
    if(NOT owned)
        _kestrion_link_entry("${source}" "${root}/${folder}")
        return()
    endif()
    if(IS_SYMLINK "${root}/${folder}")
        file(REMOVE "${root}/${folder}")
    endif()
    list(TRANSFORM owned REPLACE "/CMakeLists.txt$" "")
    # CONFIGURE_DEPENDS: a header added to the folder later gets its link at the next build.
    file(GLOB entries LIST_DIRECTORIES true RELATIVE "${source}" CONFIGURE_DEPENDS "${source}/*")
    foreach(entry IN LISTS entries)
        if(NOT entry IN_LIST owned AND (IS_DIRECTORY "${source}/${entry}" OR entry MATCHES "\\.(h|hpp|inl)$"))
            _kestrion_link_entry("${source}/${entry}" "${root}/${folder}/${entry}")
        endif()
    endforeach()
endfunction()

function(kestrion_expose_headers target)
    set(scope PUBLIC)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "INTERFACE_LIBRARY")
        set(scope INTERFACE)
    endif()
    set(folders ${ARGN})
    if(folders)
        list(GET folders 0 first)
        if(first STREQUAL "PRIVATE")
            set(scope PRIVATE)
            list(REMOVE_AT folders 0)
        endif()
    endif()
    if(scope STREQUAL "PRIVATE")
        set(root "${PROJECT_BINARY_DIR}/include/${target}.private")
    else()
        set(root "${PROJECT_BINARY_DIR}/include/${target}")
    endif()
    file(MAKE_DIRECTORY "${root}")
    foreach(folder IN LISTS folders)
        string(REGEX REPLACE "/+$" "" folder "${folder}")
        _kestrion_link_folder("${root}" "${folder}")
    endforeach()
    # Calling again for more folders adds the same root; CMake passes it once.
    target_include_directories(${target} ${scope} "${root}")
endfunction()

# The native module and the package (included by CMakeLists.txt, outside sanitizer builds).
# The project's Python dependencies are Debian's (python3-numpy, python3-pytest), installed for
# the system's interpreter. An interpreter found earlier on PATH (a pyenv or a virtualenv) often
# lacks them, so the system's is preferred unless the configuration names one.
if(NOT Python3_EXECUTABLE AND EXISTS /usr/bin/python3)
    execute_process(COMMAND /usr/bin/python3 -c "import numpy"
        RESULT_VARIABLE kestrion_system_numpy OUTPUT_QUIET ERROR_QUIET)
    if(kestrion_system_numpy EQUAL 0)
        set(Python3_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "The Python interpreter of the package")
    endif()
endif()
find_package(Python3 COMPONENTS Interpreter Development.Module NumPy)
if(NOT Python3_FOUND)
    message(STATUS "Python package: not built (needs python3-dev and python3-numpy; scripts/setup installs them)")
    return()
endif()
find_package(pybind11 CONFIG)
if(NOT pybind11_FOUND)
    message(STATUS "Python package: not built (needs pybind11-dev; scripts/setup installs it)")
    return()
endif()

set(KESTRION_PYTHON_DIR ${PROJECT_BINARY_DIR}/python)
set(KESTRION_PYTHON_PACKAGE_DIR ${KESTRION_PYTHON_DIR}/kestrion)

file(GLOB KESTRION_PYTHON_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/src/*.cpp)
file(GLOB KESTRION_PYTHON_HEADERS CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/src/*.h)
pybind11_add_module(_kestrion MODULE ${KESTRION_PYTHON_SOURCES} ${KESTRION_PYTHON_HEADERS})
kestrion_warnings(_kestrion)
if(COMMAND kestrion_own_pch)
    kestrion_own_pch(_kestrion <pybind11/pybind11.h> <pybind11/stl.h> <pybind11/numpy.h>
        ${KESTRION_PCH_STANDARD_HEADERS} <Eigen/Core>)
endif()
set_target_properties(_kestrion PROPERTIES
    AUTOMOC OFF AUTOUIC OFF AUTORCC OFF
    LIBRARY_OUTPUT_DIRECTORY ${KESTRION_PYTHON_PACKAGE_DIR}
    # Installed beside the host's libraries: <prefix>/lib/python3/dist-packages/kestrion -> <prefix>/lib.
    INSTALL_RPATH "$ORIGIN/../../..")
if(COMMAND kestrion_expose_headers)
    kestrion_expose_headers(_kestrion PRIVATE python/src)
else()
    target_include_directories(_kestrion PRIVATE ${PROJECT_SOURCE_DIR})
endif()
target_link_libraries(_kestrion PRIVATE KestrionLib KestrionStream KestrionCore KestrionLicensing
    KestrionRecording Python3::NumPy)
target_link_libraries(_kestrion PRIVATE KestrionCalibration)

# Where the package finds the plugins and the licence when KESTRION_PLUGIN_PATH and
# KESTRION_LICENSE do not say: in the build tree, the apps' folder; installed, <prefix>/bin.
set(KESTRION_PYTHON_PLUGIN_FOLDER ${KESTRION_PLUGIN_OUTPUT_DIRECTORY})
set(KESTRION_PYTHON_LICENSE ${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/kestrion.lic)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/kestrion/_paths.py.in ${KESTRION_PYTHON_PACKAGE_DIR}/_paths.py @ONLY)
set(KESTRION_PYTHON_PLUGIN_FOLDER "@PREFIX@/bin/plugins")
set(KESTRION_PYTHON_LICENSE "@PREFIX@/bin/kestrion.lic")
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/kestrion/_paths.py.in ${CMAKE_CURRENT_BINARY_DIR}/install/_paths.py @ONLY)

# The pure-Python modules are copied next to the native one at every build.
file(GLOB KESTRION_PYTHON_MODULES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/kestrion/*.py)
set(copied)
foreach(module ${KESTRION_PYTHON_MODULES})
    get_filename_component(name ${module} NAME)
    add_custom_command(OUTPUT ${KESTRION_PYTHON_PACKAGE_DIR}/${name}
        COMMAND ${CMAKE_COMMAND} -E copy_if_different ${module} ${KESTRION_PYTHON_PACKAGE_DIR}/${name}
        DEPENDS ${module} VERBATIM)
    list(APPEND copied ${KESTRION_PYTHON_PACKAGE_DIR}/${name})
endforeach()
add_custom_target(kestrion_python ALL DEPENDS ${copied} _kestrion)
# Importing the package is only useful with a tracking plugin to load and the simulated camera.
foreach(runtime kestrion AtracsysTrackingSpryTrack)
    if(TARGET ${runtime})
        add_dependencies(kestrion_python ${runtime})
    endif()
endforeach()

set(KESTRION_PYTHON_INSTALL_DIR lib/python3/dist-packages/kestrion CACHE STRING
    "Where the Python package is installed, relative to the prefix")
install(TARGETS _kestrion LIBRARY DESTINATION ${KESTRION_PYTHON_INSTALL_DIR} COMPONENT python)
install(FILES ${KESTRION_PYTHON_MODULES} DESTINATION ${KESTRION_PYTHON_INSTALL_DIR} COMPONENT python)
install(CODE "
    file(READ \"${CMAKE_CURRENT_BINARY_DIR}/install/_paths.py\" paths)
    string(REPLACE \"@PREFIX@\" \"\${CMAKE_INSTALL_PREFIX}\" paths \"\${paths}\")
    file(WRITE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${KESTRION_PYTHON_INSTALL_DIR}/_paths.py\" \"\${paths}\")
    message(STATUS \"Installing: \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${KESTRION_PYTHON_INSTALL_DIR}/_paths.py\")"
    COMPONENT python)
# The host libraries the module loads, beside it in <prefix>/lib.
install(TARGETS KestrionLib KestrionStream KestrionCore KestrionLicensing LIBRARY DESTINATION lib COMPONENT python)

# The camera SDK the plugin links: our simulated camera by default, or the vendor's SDK when
# ATRACSYS_SDK_DIR points at its installation (a folder with include/ftkInterface.h and
# lib/libfusionTrack64.so). Either way the plugin sees the target AtracsysSdk::ftk.
set(ATRACSYS_SDK_DIR "" CACHE PATH "Vendor SDK installation to build the plugin against (empty: simulator)")

if(ATRACSYS_SDK_DIR)
    find_path(ATRACSYS_SDK_INCLUDE ftkInterface.h PATHS "${ATRACSYS_SDK_DIR}/include" NO_DEFAULT_PATH)
    find_library(ATRACSYS_SDK_LIBRARY fusionTrack64 PATHS "${ATRACSYS_SDK_DIR}/lib" NO_DEFAULT_PATH)
    if(NOT ATRACSYS_SDK_INCLUDE OR NOT ATRACSYS_SDK_LIBRARY)
        message(FATAL_ERROR "ATRACSYS_SDK_DIR=${ATRACSYS_SDK_DIR} holds no include/ftkInterface.h "
                            "and lib/libfusionTrack64.so")
    endif()
    add_library(AtracsysSdk::ftk UNKNOWN IMPORTED)
    set_target_properties(AtracsysSdk::ftk PROPERTIES
        IMPORTED_LOCATION "${ATRACSYS_SDK_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${ATRACSYS_SDK_INCLUDE}")
    message(STATUS "Camera SDK: vendor SDK at ${ATRACSYS_SDK_DIR}")
else()
    # Defined by simulator/CMakeLists.txt.
    message(STATUS "Camera SDK: simulated camera")
endif()

# The plain stretch is the baseline for ordinary scalar code, so it is optimised in the same way in every build type.
add_library(kelvane_scalar_stretch STATIC "${CMAKE_CURRENT_LIST_DIR}/support/ScalarTimeStretch.cpp")
target_include_directories(kelvane_scalar_stretch PUBLIC "${CMAKE_CURRENT_LIST_DIR}")
target_link_libraries(kelvane_scalar_stretch PUBLIC kelvane_juce_audio PRIVATE kelvane_warnings)
if(NOT MSVC)
    target_compile_options(kelvane_scalar_stretch PRIVATE -O2 -ffp-contract=off)
endif()

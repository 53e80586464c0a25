# Settings for CPack, which packs the installed tree; scripts/package runs it.

set(CPACK_PACKAGE_NAME kelvane)
set(CPACK_PACKAGE_VENDOR "The Kelvane developers")
set(CPACK_PACKAGE_CONTACT "The Kelvane developers <developers@kelvane.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "splits songs into stems and changes their tempo or key")
set(CPACK_RESOURCE_FILE_LICENSE "${CMAKE_SOURCE_DIR}/LICENSE")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

if(APPLE)
    set(CPACK_PACKAGE_FILE_NAME "Kelvane-${PROJECT_VERSION}-macos")
    set(CPACK_GENERATOR ZIP)
elseif(WIN32)
    set(CPACK_PACKAGE_FILE_NAME "Kelvane-${PROJECT_VERSION}-windows")
    set(CPACK_GENERATOR ZIP)
else()
    string(TOLOWER "kelvane-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}" CPACK_PACKAGE_FILE_NAME)
    set(CPACK_GENERATOR TGZ)
    find_program(KELVANE_SHLIBDEPS dpkg-shlibdeps)
    if(KELVANE_SHLIBDEPS)
        include(DebianPackage)
    endif()
endif()

include(CPack)

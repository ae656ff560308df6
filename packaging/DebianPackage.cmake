# cmake --build build/release --target package: corvane_VERSION_ARCHITECTURE.deb in the build folder.
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME corvane)
set(CPACK_PACKAGE_CONTACT "${CORVANE_PACKAGER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "tests whether a drive keeps data")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "It writes blocks that carry their own address, remembers for every block each
content that is still legal, reads the blocks back when the drive expects it
least, and compares. What does not fit is reported with the commands that led
there and with the bytes, wanted and found.
.
The package also has the headers and libraries that agents and hosts of one's
own are built with.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

# Other packages that use our libraries depend on this very version, and the loader learns of them by a trigger.
file(CONFIGURE OUTPUT shlibs CONTENT "libostra @PROJECT_VERSION_MAJOR@ corvane (= @PROJECT_VERSION@)
libvendrel @PROJECT_VERSION_MAJOR@ corvane (= @PROJECT_VERSION@)\n" @ONLY)
file(CONFIGURE OUTPUT triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/shlibs ${CMAKE_CURRENT_BINARY_DIR}/triggers)

# Only what is packed is built for it, and not the tests.
set(CMAKE_SKIP_PACKAGE_ALL_DEPENDENCY ON CACHE INTERNAL "")
set(CPACK_INSTALL_COMMANDS "\"${CMAKE_COMMAND}\" --build \"${CMAKE_BINARY_DIR}\" --target corvane_installation")
include(CPack)

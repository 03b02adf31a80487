# The Debian package (make package): the installation with the prefix /usr, stripped, its
# library dependencies computed by dpkg-shlibdeps from every executable of the bundle, and
# maintainer scripts that create and, on purge, remove the machine-wide folders.

# cmake --install as root on this machine creates those folders as the package does. A
# staged installation (DESTDIR, also how the package is built) leaves them to the
# postinst of the machine the files land on.
set(KAIRO_POSTINST "${CMAKE_SOURCE_DIR}/resources/debian/postinst")
install(CODE "
    execute_process(COMMAND id -u OUTPUT_VARIABLE _kairo_uid OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(_kairo_uid STREQUAL \"0\" AND \"\$ENV{DESTDIR}\" STREQUAL \"\")
        message(STATUS \"Creating: /Library/LaunchDaemons, /Library/Logs/Vantreel, /Library/Preferences, /Applications\")
        execute_process(COMMAND sh [[${KAIRO_POSTINST}]] configure RESULT_VARIABLE _kairo_result)
        if(NOT _kairo_result EQUAL 0)
            message(FATAL_ERROR \"Creating the folders of the installation failed\")
        endif()
    endif()
" COMPONENT folders)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kairo-planner)
set(CPACK_PACKAGE_VENDOR Vantreel)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Run the maintenance tasks of your applications on a schedule")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Kairo Planner runs the maintenance tasks of Vantreel's other applications on a
schedule. Each task becomes a launchd job file that its launchctl bridge hands to
systemd as a service with a timer, a path watch or a mount watch. A window lists,
adds, edits and removes tasks; client applications use its command line.")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Vantreel <support@vantreel.com>")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://www.vantreel.com/")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

# Installed with DESTDIR into the staging folder, so that the paths written into the
# installed files (the polkit policy's helper) are the final ones under /usr.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# cpack installs the built tree, stripped, without building it first (the package target
# builds before it runs cpack), so that a test can package the tree other tests are using.
file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/CPackInstall.cmake" CONTENT
     "set(CMAKE_INSTALL_DO_STRIP 1)\ninclude([[${CMAKE_BINARY_DIR}/cmake_install.cmake]])\n")
set(CPACK_INSTALL_CMAKE_PROJECTS "")
set(CPACK_INSTALL_SCRIPTS "${CMAKE_BINARY_DIR}/CPackInstall.cmake")

# The libraries come from dpkg-shlibdeps; listed here is only what is loaded or run by
# name: Qt's platform and image format plugins (window, .icns icons), systemctl for the
# bridge, pkexec for administrator rights in the window, the SVG plugin for .svg icons.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, qt6-image-formats-plugins, systemd")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pkexec, libqt6svg6")

set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${KAIRO_POSTINST}" "${CMAKE_SOURCE_DIR}/resources/debian/postrm")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)

# Where the agent and the image's scripts go on a panel, and the packages. Absolute paths: the agent
# and the start-up scripts call each other by these, whatever prefix is configured.
install(TARGETS ict-agent RUNTIME DESTINATION /usr/local/bin)
install(PROGRAMS image/start-panel.sh image/check-panel.sh image/usb_mode.sh
        DESTINATION /usr/local/bin)
install(PROGRAMS image/log_rdwr.sh DESTINATION /usr/local/ict)
install(FILES image/ict-panel.service DESTINATION /usr/local/lib/systemd/system)
install(PROGRAMS image/ict-panel.init DESTINATION /etc/init.d RENAME ict-panel)
install(FILES image/ict-panel.default DESTINATION /etc/default RENAME ict-panel)

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_VENDOR "the ict-agent project")
set(CPACK_PACKAGE_CONTACT "the ict-agent project <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Factory test agent of an operator panel")
set(CPACK_PACKAGE_DESCRIPTION
    "Slave of a test station on the panel's serial port, with start-up scripts that choose between
 it and the product application. Nothing starts by itself until the service is enabled.")
set(CPACK_STRIP_FILES ON)
# Absolute paths in the archives as well: both are unpacked at the root.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY OFF)

if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
else()
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE architecture
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${architecture})
endif()
set(CPACK_PACKAGE_FILE_NAME
    "${PROJECT_NAME}_${PROJECT_VERSION}_${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}")
# By hand, for Debian's own tool knows only the build machine's libraries. libqt5gui5 brings the
# linuxfb platform.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1, libqt5core5a (>= 5.15),
 libqt5gui5 (>= 5.15), libqt5widgets5 (>= 5.15), libstdc++6 (>= 12)")
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
# The two scripts of /usr/local hold the board's settings at their top.
file(WRITE ${CMAKE_BINARY_DIR}/conffiles "/etc/default/ict-panel
/etc/init.d/ict-panel
/usr/local/bin/usb_mode.sh
/usr/local/ict/log_rdwr.sh
")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/conffiles)
include(CPack)

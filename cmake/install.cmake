# What is installed where, and the two packages: ict-agent for panels, ict-bench for people's
# machines. A build folder packs the bench if it has built it, else the agent; tools/pack.sh makes
# both.

# The agent. Absolute paths: it and the start-up scripts call each other by these, whatever prefix
# is configured.
install(TARGETS ict-agent RUNTIME DESTINATION /usr/local/bin COMPONENT agent)
install(PROGRAMS image/start-panel.sh image/check-panel.sh image/usb_mode.sh
        DESTINATION /usr/local/bin COMPONENT agent)
install(PROGRAMS image/log_rdwr.sh DESTINATION /usr/local/ict COMPONENT agent)
install(FILES image/ict-panel.service DESTINATION /usr/local/lib/systemd/system COMPONENT agent)
install(PROGRAMS image/ict-panel.init DESTINATION /etc/init.d RENAME ict-panel COMPONENT agent)
install(FILES image/ict-panel.default DESTINATION /etc/default RENAME ict-panel COMPONENT agent)

# The bench with its data in the source tree's layout, and its own agent out of everybody's PATH.
if(TARGET bench)
  install(TARGETS bench RUNTIME DESTINATION bin COMPONENT bench)
  install(TARGETS ict-agent bench-window bench-preload
          RUNTIME DESTINATION lib/ict-bench COMPONENT bench
          LIBRARY DESTINATION lib/ict-bench COMPONENT bench)
  install(DIRECTORY bench image DESTINATION share/ict-bench USE_SOURCE_PERMISSIONS COMPONENT bench
          PATTERN *.cpp EXCLUDE PATTERN *.h EXCLUDE PATTERN CMakeLists.txt EXCLUDE
          REGEX "/bench/(board|window)$" EXCLUDE)
  install(DIRECTORY docs examples DESTINATION share/doc/ict-bench COMPONENT bench)
  install(DIRECTORY tests/effects DESTINATION share/doc/ict-bench/tests COMPONENT bench)
  install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION share/doc/ict-bench COMPONENT bench)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the ict-agent project")
set(CPACK_PACKAGE_CONTACT "the ict-agent project <root@localhost>")
set(CPACK_STRIP_FILES ON)
set(CPACK_SET_DESTDIR ON) # for the absolute paths
set(CPACK_INSTALL_PREFIX /usr)
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY TRUE) # who packs has built what he packs, without the tests
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT) # ict-agent_1.20_armhf.deb
set(CPACK_DEBIAN_AGENT_PACKAGE_NAME ict-agent)
set(CPACK_DEBIAN_BENCH_PACKAGE_NAME ict-bench)
if(TARGET bench)
  set(CPACK_COMPONENTS_ALL bench)
else()
  set(CPACK_COMPONENTS_ALL agent)
endif()
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
endif()

set(CPACK_COMPONENT_AGENT_DESCRIPTION "Factory test agent of an operator panel
Slave of a test station on the panel's serial port, with start-up scripts that choose between
it and the product application. Nothing starts by itself until the service is enabled.")
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION misc)
set(CPACK_COMPONENT_BENCH_DESCRIPTION "Test bench of the factory test agent ict-agent
Virtual panels to try station software on, a test station that drives real and virtual panels
by plans, and reports. Its agent runs in a sandbox and never sets this machine's clock.")
set(CPACK_DEBIAN_BENCH_PACKAGE_SECTION misc)

# Libraries by hand, for Debian's own tool knows only the build machine's. libqt5gui5 brings the
# platforms linuxfb and vnc.
set(qtLibraries "libc6 (>= 2.34), libgcc-s1, libqt5core5a (>= 5.15), libqt5gui5 (>= 5.15), \
libqt5widgets5 (>= 5.15), libstdc++6 (>= 12)")
# busybox for its hwclock, whose form the agent reads (docs/porting.md, "Programs and scripts"),
# ifconfig, which the boot calls, and the time zone that is set with the clock.
set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS "${qtLibraries}, \
busybox | busybox-static, net-tools, tzdata")
# modprobe and fw_setenv; without fonts no text is drawn at all.
set(CPACK_DEBIAN_AGENT_PACKAGE_RECOMMENDS
    "kmod, libubootenv-tool | u-boot-tools, fonts-ubuntu | fonts-dejavu-core, iputils-ping")
set(CPACK_DEBIAN_BENCH_PACKAGE_DEPENDS "${qtLibraries}, libqt5network5, \
python3, python3-serial, python3-psycopg2, \
libvncclient1, jq, bubblewrap, libfaketime, libeatmydata1, socat, fonts-dejavu-core, tzdata")
set(CPACK_DEBIAN_BENCH_PACKAGE_RECOMMENDS "strace") # of bench effects and cuts

# Files with the board's settings are the board's from the first installation on.
file(WRITE ${CMAKE_BINARY_DIR}/conffiles "/etc/default/ict-panel
/etc/init.d/ict-panel
/usr/local/bin/usb_mode.sh
/usr/local/ict/log_rdwr.sh
")
set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA
    ${CMAKE_BINARY_DIR}/conffiles
    ${PROJECT_SOURCE_DIR}/cmake/debian/postinst
    ${PROJECT_SOURCE_DIR}/cmake/debian/prerm
    ${PROJECT_SOURCE_DIR}/cmake/debian/postrm)
set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
include(CPack)

# Cross-builds for 32-bit hard-float ARM (Debian's armhf: ARMv7 with VFPv3-D16) against the Debian
# 12 root that tools/arm.sh makes. For the root of a board's own kit: -DCMAKE_SYSROOT=FOLDER.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
if(NOT CMAKE_SYSROOT)
  get_filename_component(CMAKE_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/arm-root" ABSOLUTE)
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Qt's package files name the tools beside them, which are ARM programs, unless these targets are
# there already: the build machine's own, of the same Qt version.
if(NOT CMAKE_IN_TRY_COMPILE)
  foreach(tool qmake moc rcc uic)
    if(NOT TARGET Qt5::${tool})
      add_executable(Qt5::${tool} IMPORTED GLOBAL)
      set_target_properties(Qt5::${tool} PROPERTIES IMPORTED_LOCATION /usr/lib/qt5/bin/${tool})
    endif()
  endforeach()
endif()

# Cross-builds for 32-bit hard-float ARM. By itself against the Debian 12 root that tools/arm.sh
# makes (armhf: ARMv7 with VFPv3-D16); for a board's own kit:
#   -DCMAKE_SYSROOT=FOLDER         the kit's libraries and headers
#   -DCMAKE_CXX_COMPILER=PROGRAM   its compiler (or the variable CXX)
#   -DQT_HOST_TOOLS=FOLDER         its moc, rcc and uic, of the sysroot's Qt version, for this machine
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
if(NOT CMAKE_CXX_COMPILER AND NOT DEFINED ENV{CXX})
  set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
endif()
# Its remarks on a calling convention that changed with version 7 are of no use: all is built anew.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
if(NOT CMAKE_SYSROOT)
  get_filename_component(CMAKE_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/arm-root" ABSOLUTE)
endif()
if(NOT IS_DIRECTORY "${CMAKE_SYSROOT}")
  message(FATAL_ERROR "There is no folder ${CMAKE_SYSROOT}: make it with tools/arm.sh, or name the \
sysroot of the board's kit with -DCMAKE_SYSROOT=FOLDER")
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config answers for this machine unless it is told where the target's packages are.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:\
${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")

# Qt's package files name the tools beside them, which are ARM programs, unless these targets are
# there already.
if(NOT CMAKE_IN_TRY_COMPILE)
  set(QT_HOST_TOOLS /usr/lib/qt5/bin CACHE PATH "Folder of moc, rcc and uic for this machine")
  foreach(tool moc rcc uic)
    if(NOT EXISTS "${QT_HOST_TOOLS}/${tool}")
      message(FATAL_ERROR "There is no ${QT_HOST_TOOLS}/${tool}: name the folder of the kit's Qt \
tools for this machine with -DQT_HOST_TOOLS=FOLDER")
    endif()
  endforeach()
  foreach(tool qmake moc rcc uic)
    if(NOT TARGET Qt5::${tool})
      add_executable(Qt5::${tool} IMPORTED GLOBAL)
      set_target_properties(Qt5::${tool} PROPERTIES IMPORTED_LOCATION "${QT_HOST_TOOLS}/${tool}")
    endif()
  endforeach()
endif()

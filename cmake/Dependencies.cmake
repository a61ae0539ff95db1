# Every dependency comes from a Debian package (scripts/setup installs them).
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

find_library(CCTZ_LIBRARY cctz REQUIRED)
find_path(CCTZ_INCLUDE_DIR cctz/time_zone.h REQUIRED)
add_library(cctz::cctz UNKNOWN IMPORTED)
set_target_properties(cctz::cctz PROPERTIES
  IMPORTED_LOCATION "${CCTZ_LIBRARY}"
  INTERFACE_INCLUDE_DIRECTORIES "${CCTZ_INCLUDE_DIR}")

pkg_check_modules(MOUNT REQUIRED IMPORTED_TARGET mount)
pkg_check_modules(BLKID REQUIRED IMPORTED_TARGET blkid)
pkg_check_modules(UDEV REQUIRED IMPORTED_TARGET libudev)
pkg_check_modules(ACL REQUIRED IMPORTED_TARGET libacl)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)

if(NOT HALYARD_FUZZ)
  find_package(GTest REQUIRED)
  if(HALYARD_BENCH)
    find_package(benchmark REQUIRED)
  endif()
endif()

if(NOT HALYARD_CORE_ONLY AND NOT HALYARD_FUZZ)
  find_package(Qt6 REQUIRED COMPONENTS Core DBus Gui Widgets)
  set(CMAKE_AUTOMOC ON)
endif()

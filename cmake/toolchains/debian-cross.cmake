# Debian's cross compiler of a triplet, the target's libraries that script/test-portability has unpacked, and qemu's user
# emulation to run what was built.
set(CMAKE_SYSTEM_NAME Linux)
cmake_path(SET root NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../../build/portability/${triplet}/root)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L ${root})

# The C library is the compiler's own: the target's headers come after it, its libraries add to it.
foreach(language IN ITEMS C CXX)
  set(CMAKE_${language}_FLAGS_INIT "-idirafter ${root}/usr/include")
endforeach()
set(libraries ${root}/usr/lib/${triplet})
foreach(kind IN ITEMS EXE SHARED)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-L${libraries} -Wl,-rpath-link,${libraries}:${root}/lib/${triplet}")
endforeach()

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${root})
set(ENV{PKG_CONFIG_LIBDIR} ${libraries}/pkgconfig:${root}/usr/share/pkgconfig)
set(CMAKE_FIND_ROOT_PATH ${root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

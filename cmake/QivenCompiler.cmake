# Language level, warnings and output folders for everything in this tree.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# A relative run path keeps the build folder movable and the binaries the same wherever they are built. What is installed
# gets its own run path at once, and the build folder has the layout of an installed tree: CMake ends a run path that it
# is to change later with a colon, and the loader takes the empty entry behind that for the current folder.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
file(RELATIVE_PATH QIVEN_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
if(QIVEN_BIN_TO_LIB MATCHES "^\\.\\./[^.]")
  cmake_path(SET CMAKE_LIBRARY_OUTPUT_DIRECTORY NORMALIZE "${PROJECT_BINARY_DIR}/bin/${QIVEN_BIN_TO_LIB}")
endif()
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(QIVEN_WERROR)
  add_compile_options(-Werror)
endif()

# Hardening, where the optimiser runs (_FORTIFY_SOURCE works on its results) and no sanitizer does. A flag of the same
# kind among those that the builder brings, as distributions do, stands instead.
string(TOUPPER "${CMAKE_BUILD_TYPE}" config)
set(flags "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${config}} ")
set(QIVEN_HARDENED FALSE)
if(NOT QIVEN_HARDENING)
  message(STATUS "Hardening: off (QIVEN_HARDENING), and so is its test")
elseif(flags MATCHES "-fsanitize=" OR NOT flags MATCHES "-O[123s] ")
  message(STATUS "Hardening: off without optimisation or with a sanitizer, and so is its test")
else()
  set(QIVEN_HARDENED TRUE)
  message(STATUS "Hardening: on")
  foreach(option IN ITEMS -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(REGEX MATCH "^-f[a-z]+-[a-z]+" kind ${option})
    if(NOT flags MATCHES "${kind}" AND (NOT kind STREQUAL "-fcf-protection" OR CMAKE_SYSTEM_PROCESSOR MATCHES "86|AMD64"))
      add_compile_options(${option})
    endif()
  endforeach()
  add_compile_options(-Wformat -Werror=format-security)
  if(NOT flags MATCHES "_FORTIFY_SOURCE")
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)  # some compilers define it by themselves
  endif()
  # What is linked twice over is the same once: no need to look for what the builder brings.
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  include(CheckPIESupported)
  check_pie_supported()
endif()

# Links the C++ runtime into a program or a library of a plain C interface: loading and binding the shared one takes a
# short run longer than its work. Sanitizers need the shared one.
function(qiven_own_runtime target)
  if(QIVEN_OWN_RUNTIME AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc -Wl,--exclude-libs,ALL,--gc-sections)
  endif()
endfunction()

# Cross-builds for the player with Debian's compiler and the arm64 packages that scripts/setup unpacks.
#
# There are two sources of target files, and each has its own part: the compiler brings its C and C++ libraries
# and kernel headers, the unpacked packages bring everything else. That is why there is no CMAKE_SYSROOT: it would
# have the compiler look for both in one tree.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/../scripts/arm64-packages
    OUTPUT_VARIABLE arm64Packages OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
if(NOT IS_DIRECTORY ${arm64Packages})
    message(FATAL_ERROR "${arm64Packages} is missing: run scripts/setup")
endif()

set(CMAKE_FIND_ROOT_PATH ${arm64Packages})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(arm64Headers "-isystem ${arm64Packages}/usr/include -isystem ${arm64Packages}/usr/include/aarch64-linux-gnu")
set(CMAKE_C_FLAGS_INIT ${arm64Headers})
set(CMAKE_CXX_FLAGS_INIT ${arm64Headers})
# -rpath-link: where the libraries that our libraries need are; nothing of it is recorded in the program.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-L${arm64Packages}/usr/lib/aarch64-linux-gnu -Wl,-rpath-link,${arm64Packages}/usr/lib/aarch64-linux-gnu")
set(CMAKE_SKIP_RPATH ON)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${arm64Packages})
set(ENV{PKG_CONFIG_LIBDIR}
    ${arm64Packages}/usr/lib/aarch64-linux-gnu/pkgconfig:${arm64Packages}/usr/share/pkgconfig)

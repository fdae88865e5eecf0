# Toolchain for the board's tree (scripts/cross.sh): Debian's cross compiler for
# KORVEX_CROSS_TRIPLET, the target's headers and libraries from the sysroot unpacked at
# KORVEX_CROSS_SYSROOT (scripts/cross-sysroot.sh), and the C library of the toolchain's
# own /usr/<triplet>. Tests run under KORVEX_CROSS_QEMU.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${KORVEX_CROSS_PROCESSOR})
# try_compile projects read this file again and need the same values.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
     KORVEX_CROSS_TRIPLET KORVEX_CROSS_SYSROOT KORVEX_CROSS_QEMU KORVEX_CROSS_PROCESSOR)

set(CMAKE_C_COMPILER ${KORVEX_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KORVEX_CROSS_TRIPLET}-g++)

# Not CMAKE_SYSROOT: the sysroot holds no C library, the compiler keeps its own.
set(CMAKE_FIND_ROOT_PATH ${KORVEX_CROSS_SYSROOT} /usr/${KORVEX_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE ${KORVEX_CROSS_TRIPLET})

# pkg-config reads the target's .pc files and prefixes their paths with the sysroot.
set(ENV{PKG_CONFIG_LIBDIR}
    "${KORVEX_CROSS_SYSROOT}/usr/lib/${KORVEX_CROSS_TRIPLET}/pkgconfig:${KORVEX_CROSS_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${KORVEX_CROSS_SYSROOT})
set(ENV{PKG_CONFIG_PATH} "")

# The libraries' own dependencies (libsystemd under libdbus, ...) are found at link time
# through rpath-link; at run time the emulator is given the same directories.
set(KORVEX_CROSS_LIBRARY_DIRS
    ${KORVEX_CROSS_SYSROOT}/usr/lib/${KORVEX_CROSS_TRIPLET} ${KORVEX_CROSS_SYSROOT}/lib/${KORVEX_CROSS_TRIPLET})
foreach(libdir IN LISTS KORVEX_CROSS_LIBRARY_DIRS)
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${libdir}")
  string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${libdir}")
  string(APPEND CMAKE_MODULE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${libdir}")
endforeach()
list(JOIN KORVEX_CROSS_LIBRARY_DIRS ":" KORVEX_CROSS_LD_PATH)
set(CMAKE_CROSSCOMPILING_EMULATOR
    ${KORVEX_CROSS_QEMU} -L /usr/${KORVEX_CROSS_TRIPLET} -E LD_LIBRARY_PATH=${KORVEX_CROSS_LD_PATH})

# Cross-compiling for 64-bit Windows with Debian's mingw-w64 (g++-mingw-w64-x86-64-posix).
# The "posix" thread model is the one whose libstdc++ has std::thread and std::mutex.
#
#   cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
#         -DLX_WINDOWS_PREFIX=/path/to/target/prefix
#
# LX_WINDOWS_PREFIX is where the Windows builds of libogg, libvorbis, speexdsp and
# GoogleTest are installed (make windows-test builds them there). Tests run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(LX_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${LX_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${LX_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${LX_MINGW_TRIPLE}-windres)

# Try-compiles run in a fresh project: hand the prefix on to them.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES LX_WINDOWS_PREFIX)

set(CMAKE_FIND_ROOT_PATH /usr/${LX_MINGW_TRIPLE})
if(LX_WINDOWS_PREFIX)
  list(APPEND CMAKE_FIND_ROOT_PATH ${LX_WINDOWS_PREFIX})
  list(APPEND CMAKE_PREFIX_PATH ${LX_WINDOWS_PREFIX})
  # pkg-config must see the target's .pc files only, never the build machine's.
  set(ENV{PKG_CONFIG_LIBDIR} "${LX_WINDOWS_PREFIX}/lib/pkgconfig:${LX_WINDOWS_PREFIX}/share/pkgconfig")
  set(ENV{PKG_CONFIG_PATH} "")
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test executables run under Wine; the quiet debug channel keeps Wine's own
# diagnostics (no display, no 32-bit loader) out of the test output.
if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
  find_program(LX_WINE_PROGRAM NAMES wine wine64 wine-stable)
  if(LX_WINE_PROGRAM)
    set(CMAKE_CROSSCOMPILING_EMULATOR env WINEDEBUG=-all ${LX_WINE_PROGRAM})
  endif()
endif()

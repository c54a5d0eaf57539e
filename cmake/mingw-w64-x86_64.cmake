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

# Test executables run under Wine, in a Wine prefix of the build tree's own
# (LX_WINE_PREFIX; created on the first run). The quiet debug channel keeps
# Wine's own diagnostics (no display, no 32-bit loader) out of the test output,
# and Mono and Gecko are not offered. Wine's sound goes through ALSA: the tests
# give it a default PCM that swallows what is played and records silence
# (wine-asound.conf), so the WinMM device tests run on any machine, sound card
# or not, and never make a sound.
if(NOT CMAKE_CROSSCOMPILING_EMULATOR)
  find_program(LX_WINE_PROGRAM NAMES wine wine64 wine-stable)
  find_program(LX_WINESERVER_PROGRAM NAMES wineserver wineserver-stable wineserver64)
  if(LX_WINE_PROGRAM AND LX_WINESERVER_PROGRAM)
    set(LX_WINE_PREFIX "${CMAKE_BINARY_DIR}/wine" CACHE PATH "Wine prefix the tests run in")
    set(CMAKE_CROSSCOMPILING_EMULATOR env WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml=
      WINEPREFIX=${LX_WINE_PREFIX} ALSA_CONFIG_PATH=${CMAKE_CURRENT_LIST_DIR}/wine-asound.conf
      sh ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh ${LX_WINESERVER_PROGRAM} ${LX_WINE_PROGRAM})
  endif()
endif()

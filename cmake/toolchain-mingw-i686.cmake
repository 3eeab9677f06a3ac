# Cross build of the Windows DLL: 32-bit x86, whose test programs run under
# 32-bit Wine in the root of scripts/wine-test.
set(MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR wine)

# Cross build of the Windows DLL: 64-bit x86, whose test programs run under Wine.
set(MINGW_TRIPLET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
set(CMAKE_CROSSCOMPILING_EMULATOR wine)

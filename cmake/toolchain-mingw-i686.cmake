# Cross build of the Windows DLL: 32-bit x86.
set(MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)

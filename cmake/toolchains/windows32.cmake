set(CMAKE_SYSTEM_PROCESSOR i686)
set(KORVANE_MINGW i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw.cmake)
# Doubles are computed as on 64 bits, not with the extra digits of the old coprocessor.
set(CMAKE_CXX_FLAGS_INIT "-msse2 -mfpmath=sse")

# Builds for 64-bit Windows on Debian, with the POSIX thread model; tests run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Inline functions of several objects are one in the program, whichever the linker keeps; GCC for this
# system may nevertheless count on the registers that its own copy leaves alone. Seen with
# std::mt19937, between objects of two optimisation levels.
set(CMAKE_CXX_FLAGS_INIT "-fno-ipa-ra")
# Everything is linked in, so that the DLL asks for nothing that a plain Windows lacks; no time
# stamp, so that two builds of one source are the same bytes.
set(VELMORA_WINDOWS_LINK "-static -Wl,--no-insert-timestamp")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${VELMORA_WINDOWS_LINK}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${VELMORA_WINDOWS_LINK}")
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-under-wine)

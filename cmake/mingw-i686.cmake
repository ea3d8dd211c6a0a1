# Cross-build for 32-bit Windows (the DLL that ships) with the posix-threaded MinGW-w64 compilers
# (std::thread needs the posix flavour).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(KV_TRIPLE i686-w64-mingw32)
set(CMAKE_C_COMPILER   ${KV_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KV_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER  ${KV_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KV_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

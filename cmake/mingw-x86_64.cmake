# Cross-build for 64-bit Windows with the posix-threaded MinGW-w64 compilers
# (std::thread needs the posix flavour).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(KV_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${KV_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KV_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER  ${KV_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${KV_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

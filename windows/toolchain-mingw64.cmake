# Cross build for 64-bit Windows with Debian's mingw-w64 toolchain.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(BRINDLET_MINGW_PREFIX x86_64-w64-mingw32)
# The posix thread model: std::thread and std::mutex, which the base classes
# use, are missing from the win32 one in this compiler version.
find_program(CMAKE_CXX_COMPILER NAMES ${BRINDLET_MINGW_PREFIX}-g++-posix ${BRINDLET_MINGW_PREFIX}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${BRINDLET_MINGW_PREFIX}-windres REQUIRED)

set(CMAKE_FIND_ROOT_PATH /usr/${BRINDLET_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

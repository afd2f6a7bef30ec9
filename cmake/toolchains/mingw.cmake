# Cross compilation for Windows with the posix threads of mingw-w64. The caller sets the processor and the prefix
# of the tools.
set(CMAKE_SYSTEM_NAME Windows)
# GoogleTest is built in this tree, and its project needs C too.
set(CMAKE_C_COMPILER ${TESSMARU_MINGW}-gcc-posix)
set(CMAKE_CXX_COMPILER ${TESSMARU_MINGW}-g++-posix)
set(CMAKE_RC_COMPILER ${TESSMARU_MINGW}-windres)

# Libraries and headers are those of the target, programs those of this machine.
set(CMAKE_FIND_ROOT_PATH /usr/${TESSMARU_MINGW})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# musl in place of glibc, by this machine's compiler and Debian's musl-tools. tools/make_musl.sh puts
# a C++ library for it, which the tests need, into VEL_MUSL.
set(VEL_MUSL ${CMAKE_CURRENT_LIST_DIR}/../build/musl CACHE PATH "Where the C++ library for musl is")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VEL_MUSL)
get_filename_component(VEL_MUSL ${VEL_MUSL} REALPATH)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER ${VEL_MUSL}/bin/musl-gcc)
set(CMAKE_CXX_COMPILER ${VEL_MUSL}/bin/musl-g++)
set(CMAKE_FIND_ROOT_PATH ${VEL_MUSL} /usr/lib/x86_64-linux-musl)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# What was compiled before is taken from ccache, where that is installed.
find_program(QUARVEL_CCACHE ccache)
if(QUARVEL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${QUARVEL_CCACHE})
endif()

# Options of every target of ours; private to them, so that nobody who links the library inherits them.
add_library(quarvel_options INTERFACE)
target_compile_options(quarvel_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -fstack-protector-strong $<$<BOOL:${QUARVEL_WARNINGS_AS_ERRORS}>:-Werror>)
if(QUARVEL_SANITIZE)
  target_compile_options(quarvel_options INTERFACE
    -fsanitize=${QUARVEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(quarvel_options INTERFACE -fsanitize=${QUARVEL_SANITIZE})
else()
  target_compile_options(quarvel_options INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()

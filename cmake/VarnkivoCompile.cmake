# Warnings (all of them errors), hardening and the instruments of the asan, tsan and coverage presets. Included before
# the folders are, so that every target of the project gets them without asking.
set(VARNKIVO_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
option(VARNKIVO_COVERAGE "Build for gcov" OFF)
option(VARNKIVO_FUZZ "Build the fuzz targets, with clang and VARNKIVO_SANITIZE" OFF)

# A tree to run the tests in, not to install: what is for readers or for speed is left out of it.
set(VARNKIVO_INSTRUMENTED OFF)
if((VARNKIVO_SANITIZE OR VARNKIVO_COVERAGE) AND NOT VARNKIVO_FUZZ)
  set(VARNKIVO_INSTRUMENTED ON)
endif()

add_library(varnkivo_warnings INTERFACE)
target_compile_options(varnkivo_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Wformat=2 -Wno-format-nonliteral -Werror=format-security -Werror)

add_library(varnkivo_hardening INTERFACE)
target_compile_options(varnkivo_hardening INTERFACE -fstack-protector-strong -fstack-clash-protection)
target_link_options(varnkivo_hardening INTERFACE -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,--as-needed)

if(VARNKIVO_SANITIZE)
  target_compile_options(varnkivo_hardening INTERFACE
    # The compiler takes some of the code that it has instrumented for uninitialised.
    -fsanitize=${VARNKIVO_SANITIZE} $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized> -fno-sanitize-recover=all -fno-omit-frame-pointer -O1
    -g1)  # lines for their reports; all of it would take a quarter of the time
  target_link_options(varnkivo_hardening INTERFACE -fsanitize=${VARNKIVO_SANITIZE})
elseif(VARNKIVO_COVERAGE)
  target_compile_options(varnkivo_hardening INTERFACE --coverage -fprofile-update=atomic -O0 -g0)  # threads count, too
  target_link_options(varnkivo_hardening INTERFACE --coverage)
else()
  # Fortified calls need optimisation, and would hide from the sanitizers what they are there to see.
  target_compile_options(varnkivo_hardening INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()

if(VARNKIVO_FUZZ)
  target_compile_options(varnkivo_hardening INTERFACE -fsanitize=fuzzer-no-link)  # counts edges; no main() of its own
endif()

link_libraries($<BUILD_INTERFACE:varnkivo_warnings> $<BUILD_INTERFACE:varnkivo_hardening>)  # not for those who use what is installed

# A shared library names all it needs. Not with sanitizers: their runtime is found through the program.
function(varnkivo_no_undefined target)
  if(NOT VARNKIVO_SANITIZE)
    target_link_options(${target} PRIVATE -Wl,-z,defs)
  endif()
endfunction()

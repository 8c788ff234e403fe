# Language level, warnings and hardening, for every target of the project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

# Off under the thread sanitizer and in releases: g++ 12 then warns of uninitialised and overrun objects that are neither.
option(VRX_STRICT "Treat warnings as errors (development presets)" OFF)
set(VRX_SANITIZE "" CACHE STRING "Sanitizers for the whole build, for example address,undefined")

if(VRX_SANITIZE)
  add_compile_options(-fsanitize=${VRX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VRX_SANITIZE})
endif()

add_library(vrx_build_options INTERFACE)
target_compile_options(vrx_build_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 sees overlapping copies in std::string's operator+ that are not there (GCC bug 105651).
  target_compile_options(vrx_build_options INTERFACE -Wno-restrict)
endif()
if(VRX_STRICT)
  target_compile_options(vrx_build_options INTERFACE -Werror)
endif()

# Sanitizers bring their own checks and do not mix with fortified library calls; they may also come in
# through CMAKE_CXX_FLAGS.
if(NOT VRX_SANITIZE AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  target_compile_options(vrx_build_options INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2;-fstack-protector-strong>)
  target_link_options(vrx_build_options INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo>:LINKER:-z,relro,-z,now>)
endif()

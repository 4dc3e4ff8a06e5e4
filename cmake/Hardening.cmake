# Compiler flags of our own sources: warnings are errors, release builds are hardened.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
add_library(qvcd_flags INTERFACE)
target_compile_options(qvcd_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wformat=2 -Wcast-qual
  -Wnon-virtual-dtor -Werror -fno-omit-frame-pointer)
target_link_libraries(qvcd_flags INTERFACE Threads::Threads)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(qvcd_flags INTERFACE -Wno-restrict) # false alarms on std::string's operator+
endif()

if(QVCD_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(qvcd_flags INTERFACE -Wno-array-bounds -Wno-stringop-overflow) # false alarms on instrumented strings
endif()

if(QVCD_SANITIZE MATCHES "fuzzer")
  target_compile_options(qvcd_flags INTERFACE -w) # of clang, which finds others than the compiler that we build with
endif()

if(QVCD_SANITIZE)
  target_compile_options(qvcd_flags INTERFACE -fsanitize=${QVCD_SANITIZE} -fno-sanitize-recover=all)
  target_link_options(qvcd_flags INTERFACE -fsanitize=${QVCD_SANITIZE})
endif()

if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT QVCD_SANITIZE)
  target_compile_options(qvcd_flags INTERFACE
    -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS -fstack-protector-strong -fstack-clash-protection)
  target_link_options(qvcd_flags INTERFACE
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie> -Wl,-z,relro,-z,now,-z,noexecstack)
endif()

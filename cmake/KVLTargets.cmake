# How this project's targets are made, so that all have the same flags.

add_library(kvl_warnings INTERFACE)
# g++ 12 takes the string concatenation of its own library for an overlapping copy when it optimises
# (https://gcc.gnu.org/bugzilla/show_bug.cgi?id=105651), and a comparison of byte vectors for one of more
# bytes than there are.
target_compile_options(kvl_warnings INTERFACE -Wall -Wextra -Wpedantic -Werror -Wshadow
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wconversion -Wno-sign-conversion
  "$<$<CXX_COMPILER_ID:GNU>:-Wno-dangling-else;-Wno-restrict;-Wno-stringop-overread>"
  "$<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>")
# A source that is included into another one looks like a header to g++, which warns of anonymous
# namespaces in it.
target_compile_options(kvl_warnings INTERFACE
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:$<TARGET_PROPERTY:UNITY_BUILD>>>:-Wno-subobject-linkage>)
add_library(kvl_flags INTERFACE)
target_link_libraries(kvl_flags INTERFACE kvl_warnings)
if(KVL_SANITIZE)
  target_compile_options(kvl_flags INTERFACE -fsanitize=${KVL_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(kvl_flags INTERFACE -fsanitize=${KVL_SANITIZE})
else()
  include(KVLHardening)
endif()

# What a program is made with that goes on in a child of fork(2): the thread sanitizer ends such children.
add_library(kvl_forking_flags INTERFACE)
if(KVL_SANITIZE MATCHES "thread")
  target_link_libraries(kvl_forking_flags INTERFACE kvl_warnings)
else()
  target_link_libraries(kvl_forking_flags INTERFACE kvl_flags)
endif()

# kvl_component(name SOURCES file... [PRIVATE_LINKS lib...] [LINKS lib...])
# One subsystem as a static library. libkvlocal.so takes all of them in; tests link only what they
# test.
function(kvl_component name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE kvl_flags ${ARG_PRIVATE_LINKS})
  set_property(GLOBAL APPEND PROPERTY KVL_COMPONENTS ${name})
endfunction()

# kvl_program(name SOURCES file... LINKS lib...)
function(kvl_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE kvl_flags ${ARG_LINKS})
endfunction()

# How this project's targets are made, so that all have the same flags.

# platform/core/PartsFolder.h says the same.
set(KVL_PARTS_FOLDER kvlocal-${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

add_library(kvl_warnings INTERFACE)
target_compile_features(kvl_warnings INTERFACE cxx_std_20)
# g++ 12 takes the string concatenation of its own library for an overlapping copy when it optimises
# (https://gcc.gnu.org/bugzilla/show_bug.cgi?id=105651), and a comparison of byte vectors for one of more
# bytes than there are.
target_compile_options(kvl_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wconversion -Wno-sign-conversion
  "$<$<CXX_COMPILER_ID:GNU>:-Wno-dangling-else;-Wno-restrict;-Wno-stringop-overread>"
  "$<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>")
if(KVL_WERROR)
  target_compile_options(kvl_warnings INTERFACE -Werror)
elseif(NOT PROJECT_IS_TOP_LEVEL)
  # What a project asks of its own sources need not hold for these.
  target_compile_options(kvl_warnings INTERFACE -Wno-error)
endif()
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

# What optimised builds of the library's parts are made with. OFTEN: loops over every byte of a body.
# SELDOM: what is done now and then, or waits for others meanwhile, so that size matters more than
# speed. What is neither takes no copies of larger functions. CMake's own choice, -O3, makes the
# library twice as large.
function(kvl_optimise name)
  cmake_parse_arguments(ARG "OFTEN;SELDOM" "" "" ${ARGN})
  set(options -O2 -ffunction-sections -fdata-sections -fno-semantic-interposition)
  if(ARG_SELDOM)
    list(APPEND options -Os)
  elseif(NOT ARG_OFTEN)
    list(APPEND options $<$<CXX_COMPILER_ID:GNU>:--param=max-inline-insns-single=20>
      $<$<CXX_COMPILER_ID:GNU>:--param=max-inline-insns-auto=8>)
  endif()
  target_compile_options(${name} PRIVATE "$<$<CONFIG:Release>:${options}>")
endfunction()

# The same for single files of a component. Only where they matter, since such files are not joined.
function(kvl_optimise_files speed)
  if(CMAKE_BUILD_TYPE STREQUAL "Release")
    set(options -Os)
    if(speed STREQUAL "OFTEN")
      set(options $<$<CXX_COMPILER_ID:GNU>:--param=max-inline-insns-single=70>
        $<$<CXX_COMPILER_ID:GNU>:--param=max-inline-insns-auto=15>)
    endif()
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${options}")
  endif()
endfunction()

# Components' objects hold finished code and, besides, what the compiler knew of it. libkvlocal.so is made
# of the latter, as a whole, which makes it an eighth smaller. Programs take the finished code: a hundred
# of them would be compiled once more otherwise.
set(KVL_WHOLE_LIBRARY $<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>>)
if(KVL_STATIC)  # which any compiler's linker is to take
  set(KVL_WHOLE_LIBRARY 0)
endif()

# kvl_choose(variable file...)
# Where only POSIX may be used, a file of that name in the folder portable/ takes the place of the one
# that uses what Linux and its desktops have besides.
function(kvl_choose variable)
  set(chosen)
  foreach(file ${ARGN})
    if(KVL_PORTABLE AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/portable/${file})
      list(APPEND chosen portable/${file})
    else()
      list(APPEND chosen ${file})
    endif()
  endforeach()
  set(${variable} ${chosen} PARENT_SCOPE)
endfunction()

# kvl_component(name SOURCES file... [PRIVATE_LINKS lib...] [LINKS lib...]
#               [OFTEN | SELDOM])
# One subsystem as a static library. libkvlocal.so takes all of them in; tests link only what they
# test.
function(kvl_component name)
  cmake_parse_arguments(ARG "OFTEN;SELDOM" "" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
  kvl_choose(sources ${ARG_SOURCES})
  add_library(${name} STATIC ${sources})
  set(speed)
  if(ARG_OFTEN)
    set(speed OFTEN)
  elseif(ARG_SELDOM)
    set(speed SELDOM)
  endif()
  kvl_optimise(${name} ${speed})
  target_compile_options(${name} PRIVATE "$<${KVL_WHOLE_LIBRARY}:-flto=auto;-ffat-lto-objects>")
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
  target_link_options(${name} PRIVATE $<${KVL_WHOLE_LIBRARY}:-fno-lto>)
endfunction()

# kvl_export(library map): what the library exports, as packaging/<map>.in says, and with which version
# its symbols are marked: a program that was linked with another soname's does not bind to them.
# Sanitizers leave their own symbols to the program, and compare type information by address.
function(kvl_export library map)
  if(KVL_SANITIZE)
    return()
  endif()
  string(TOUPPER ${library}_${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR} KVL_SYMBOL_VERSION)
  string(REPLACE - _ KVL_SYMBOL_VERSION ${KVL_SYMBOL_VERSION})
  set(exports ${CMAKE_CURRENT_BINARY_DIR}/${map})
  configure_file(${PROJECT_SOURCE_DIR}/packaging/${map}.in ${exports} @ONLY)
  target_link_options(${library} PRIVATE -Wl,--no-undefined -Wl,--version-script=${exports})
  set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${exports})
endfunction()

# Builds for development link a hundred programs, for which this linker takes a fifth of the usual
# one's time. What is shipped is linked by the usual one.
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  find_program(KVL_QUICK_LINKER ld.lld HINTS /usr/lib/llvm-19/bin)
  mark_as_advanced(KVL_QUICK_LINKER)
  if(KVL_QUICK_LINKER)
    cmake_path(GET KVL_QUICK_LINKER PARENT_PATH folder)
    add_link_options(-B${folder} -fuse-ld=lld)
  endif()
endif()

# libkvlocal.so.

# The components' objects make the library; linking the components as well brings in what they
# need. Nothing of their archives is left to be taken, and of what is loaded late nothing is linked.
set(objects)
foreach(component ${components})
  list(APPEND objects $<TARGET_OBJECTS:${component}>)
endforeach()
add_library(kvlocal SHARED ${objects} $<TARGET_OBJECTS:kvl_late_modules>)
add_dependencies(kvlocal kvlocal-texts)
target_link_libraries(kvlocal PRIVATE kvl_flags ${components})
# What is loaded late is built with whatever else links the library.
set(is_part $<BOOL:$<TARGET_PROPERTY:KVL_IS_LATE_PART>>)
target_link_libraries(kvlocal INTERFACE $<BUILD_INTERFACE:$<$<NOT:${is_part}>:kvl_late_parts>>)

# Before 1.0 every minor version may change the binary interface, so it is part of the soname.
set_target_properties(kvlocal PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
# Its threads run to the end of the process, so the code must stay even for a plug-in.
target_link_options(kvlocal PRIVATE -Wl,-z,relro,-z,now,-z,nodelete -Wl,--as-needed
  $<${KVL_WHOLE_LIBRARY}:-flto=auto>)
kvl_export(kvlocal exports.map)
if(NOT KVL_SANITIZE)
  # Nobody replaces single functions of the framework, so calls among them need no look at names.
  target_link_options(kvlocal PRIVATE -Wl,--gc-sections -Wl,-Bsymbolic-functions)
  include(CheckLinkerFlag)
  check_linker_flag(CXX -Wl,-z,pack-relative-relocs KVL_HAS_PACKED_RELOCATIONS)
  if(KVL_HAS_PACKED_RELOCATIONS)  # which need glibc 2.36 where the library runs
    target_link_options(kvlocal PRIVATE -Wl,-z,pack-relative-relocs)
  endif()
endif()


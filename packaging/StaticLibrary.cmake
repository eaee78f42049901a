# libkvlocal.a: with what libkvlocal.so loads when it is first used. Of other libraries it takes the
# shared ones, under one name, which both packages tell to whoever links it.
set(KVL_STATIC_NEEDS libcurl openssl glib-2.0 gio-2.0 gio-unix-2.0 libsecret-1 libkeyutils simdjson icu-i18n
  icu-uc)
pkg_check_modules(KVL_STATIC_NEEDS REQUIRED IMPORTED_TARGET GLOBAL ${KVL_STATIC_NEEDS})

set(objects)
foreach(component ${components} kvl_texts kvl_bus_transport kvl_desktop kvl_secret_service)
  list(APPEND objects $<TARGET_OBJECTS:${component}>)
endforeach()
add_library(kvlocal STATIC ${objects})
add_dependencies(kvlocal kvlocal-image-decoder)
target_link_libraries(kvlocal PRIVATE PkgConfig::KVL_STATIC_NEEDS pthread ${CMAKE_DL_LIBS})

# A program has no library beside it, so the decoder is looked for where it is installed, too.
target_compile_definitions(kvl_core PRIVATE KVL_INSTALLED_BESIDE="${CMAKE_INSTALL_FULL_LIBDIR}")

list(JOIN KVL_STATIC_NEEDS ", " needs)
set(KVL_PC_NEEDS "Requires: ${needs}\n")
set(KVL_PC_LIBS " -lpthread -ldl")

# What an installation consists of. The libraries for Qt hosts are components of their own, for which
# the package is asked.

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KVLocal)
configure_package_config_file(KVLocalConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/KVLocalConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KVLocalConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
# Both packages find the prefix from where they lie, so an installation may be moved.
file(RELATIVE_PATH pc_to_prefix /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
configure_file(kvlocal.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kvlocal.pc @ONLY)

install(TARGETS kvlocal EXPORT KVLocalTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The image decoder and the modules are looked for in this folder beside the library.
set(parts kvlocal-image-decoder)
if(NOT KVL_STATIC)
  list(APPEND parts kvlocal-bus kvlocal-texts)
endif()
install(TARGETS ${parts}
  RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR}/${KVL_PARTS_FOLDER}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/${KVL_PARTS_FOLDER})
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kvlocal-image-decoder.8
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/local DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET kvlocal-qt6)
  configure_file(kvlocal-qt6.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kvlocal-qt6.pc @ONLY)
  install(TARGETS kvlocal-qt6 EXPORT KVLocalQt6Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/qt/include/local DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT KVLocalQt6Targets NAMESPACE KVLocal:: DESTINATION ${package_dir})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kvlocal-qt6.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
if(TARGET kvlocal-qt6web)
  configure_file(kvlocal-qt6web.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kvlocal-qt6web.pc @ONLY)
  install(TARGETS kvlocal-qt6web EXPORT KVLocalQt6WebTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/qt/web/include/local DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT KVLocalQt6WebTargets NAMESPACE KVLocal:: DESTINATION ${package_dir})
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kvlocal-qt6web.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
install(EXPORT KVLocalTargets NAMESPACE KVLocal:: DESTINATION ${package_dir})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KVLocalConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/KVLocalConfigVersion.cmake DESTINATION ${package_dir})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kvlocal.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(KVL_BUILD_TOOLS)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kvlocal.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  include(Completions.cmake)
  kvl_install_completions(kvlocal)
endif()

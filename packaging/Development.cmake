# The component "development": what somebody needs who writes the other side, or a host without one
# of their own. Service files are among the examples, so that installing starts nothing.
install(TARGETS kvlocal-devnotary kvlocal-devservice
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/docs/man/kvlocal-devnotary.1
  ${PROJECT_SOURCE_DIR}/docs/man/kvlocal-devservice.1
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT development)
include(${PROJECT_SOURCE_DIR}/packaging/Completions.cmake)
foreach(program kvlocal-devnotary kvlocal-devservice)
  kvl_install_completions(${program} COMPONENT development)
endforeach()
install(FILES
  ${PROJECT_SOURCE_DIR}/devservice/notary/korvale.vandrel.local.notaryProtocol.xml
  DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/interfaces COMPONENT development)

set(documents ${CMAKE_INSTALL_DATADIR}/doc/kvlocal)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${documents} COMPONENT development
  PATTERN man EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${documents} COMPONENT development
  USE_SOURCE_PERMISSIONS PATTERN __pycache__ EXCLUDE)

# They name the programs where they are installed, which is not known before.
set(activation ${PROJECT_SOURCE_DIR}/devservice/notary/korvale.vandrel.local.notary.service.in)
install(CODE "
  set(KVL_PROGRAM_DIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
  set(KVL_DEVNOTARY_COMMAND \"\${KVL_PROGRAM_DIR}/kvlocal-devnotary\")
  set(examples \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${documents}/examples\")
  configure_file(\"${activation}\"
    \"\${examples}/dbus/korvale.vandrel.local.notary.service\" @ONLY)
  foreach(program kvlocal-devnotary kvlocal-devservice)
    configure_file(\"${PROJECT_SOURCE_DIR}/packaging/systemd/\${program}.service.in\"
      \"\${examples}/systemd/\${program}.service\" @ONLY)
  endforeach()
" COMPONENT development)

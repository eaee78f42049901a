# What completes the command lines of the programs, under the name by which each shell looks for it.
# Debian's packages have their functions for zsh elsewhere than other systems and /usr/local have.
include_guard()
set(KVL_ZSH_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
  CACHE STRING "Folder of zsh's completion functions, below the prefix")

# kvl_install_completions(PROGRAM [COMPONENT ...])
function(kvl_install_completions program)
  set(completions ${PROJECT_SOURCE_DIR}/packaging/completions)
  install(FILES ${completions}/kvlocal.bash RENAME ${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions ${ARGN})
  install(FILES ${completions}/kvlocal.zsh RENAME _${program}
    DESTINATION ${KVL_ZSH_COMPLETIONS} ${ARGN})
  install(FILES ${completions}/kvlocal.fish RENAME ${program}.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d ${ARGN})
endfunction()

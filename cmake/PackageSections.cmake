# Run by CPack (CPACK_PRE_BUILD_SCRIPTS) on the staged files, after they were
# stripped: drops the compilers' identification sections, which strip keeps
# and a stripped Debian binary does not carry (Debian's own packaging tools
# remove them the same way).
file(GLOB_RECURSE tw_staged LIST_DIRECTORIES false "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
list(FILTER tw_staged INCLUDE REGEX "/bin/[^/]+$")
if(NOT tw_staged)
  message(FATAL_ERROR "no program staged under ${CPACK_TEMPORARY_INSTALL_DIRECTORY}")
endif()
foreach(tw_program IN LISTS tw_staged)
  execute_process(
    COMMAND ${CPACK_TW_OBJCOPY} --remove-section=.comment --remove-section=.note ${tw_program}
    RESULT_VARIABLE tw_result)
  if(NOT tw_result EQUAL 0)
    message(FATAL_ERROR "objcopy could not drop the identification sections of ${tw_program}")
  endif()
endforeach()

# Manual pages made from the programs' own --help and --version with
# help2man, so the page and the help never say different things. Without
# help2man (scripts/install-deps.sh installs it) no pages are made.
find_program(HELP2MAN_PROGRAM help2man)
find_program(GZIP_PROGRAM gzip)
if(NOT HELP2MAN_PROGRAM OR NOT GZIP_PROGRAM)
  message(WARNING "help2man or gzip not found: the manual pages are not built")
endif()

# veranti_add_man_page(<target> <component> <one-line description>)
# Builds <target>.1.gz with the program and installs it in section 1.
function(veranti_add_man_page target component description)
  if(NOT HELP2MAN_PROGRAM OR NOT GZIP_PROGRAM)
    return()
  endif()
  set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1)
  add_custom_command(OUTPUT ${page}.gz
    COMMAND ${CMAKE_COMMAND} -E env DLOG_OUTPUT=none
            ${HELP2MAN_PROGRAM} --no-info --section=1 --name=${description}
            --source=capi-veranti-service --output=${page} $<TARGET_FILE:${target}>
    COMMAND ${GZIP_PROGRAM} -n -9 -f ${page}
    DEPENDS ${target} VERBATIM)
  add_custom_target(${target}-man ALL DEPENDS ${page}.gz)
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
endfunction()

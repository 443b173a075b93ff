# Where things lie once they are installed, and in which of the parts that can be had alone:
# server, library, development, tools, python (cmake --install BUILD --component PART).
include(GNUInstallDirs)

# The device library is the server's alone.
set(KALIX_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/kalix)

# Programs find their libraries from where they lie, in the build tree (always in lib) and in any prefix alike.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")
if(NOT CMAKE_INSTALL_LIBDIR STREQUAL "lib")
  list(APPEND CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

# kalix_install_from(TEMPLATE DESTINATION COMPONENT [NAME value ...]): a file that names installed paths. It is written
# at installation, when the prefix is known; @PREFIX@ is that, and each @NAME@ its value.
function(kalix_install_from template destination component)
  set(values "")
  foreach(pair ${ARGN})
    string(APPEND values "set(${pair})\n")
  endforeach()
  get_filename_component(directory ${destination} DIRECTORY)
  get_filename_component(name ${destination} NAME)
  install(CODE "${values}set(PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
configure_file(\"${template}\" \"${CMAKE_CURRENT_BINARY_DIR}/${name}\" @ONLY)
file(INSTALL \"${CMAKE_CURRENT_BINARY_DIR}/${name}\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${directory}\")"
    COMPONENT ${component})
endfunction()

# kalix_install_tool(PROGRAM): a program of tools/command_line.h, its manual page, and its completion for three shells,
# all as it describes itself.
function(kalix_install_tool program)
  install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  set(made ${CMAKE_BINARY_DIR}/descriptions)
  set(man_file man1/${program}.1)
  set(bash_file bash-completion/completions/${program})
  set(zsh_file zsh/site-functions/_${program})
  set(fish_file fish/vendor_completions.d/${program}.fish)
  set(outputs "")
  foreach(language man bash zsh fish)
    set(output ${made}/${${language}_file})
    get_filename_component(folder ${output} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    add_custom_command(OUTPUT ${output} COMMAND ${program} --describe-as ${language} > ${output} DEPENDS ${program}
      COMMENT "Asking ${program} to describe itself for ${language}" VERBATIM)
    list(APPEND outputs ${output})
    get_filename_component(place ${${language}_file} DIRECTORY)
    if(NOT language STREQUAL man)
      install(FILES ${output} DESTINATION ${CMAKE_INSTALL_DATADIR}/${place} COMPONENT tools)
    endif()
  endforeach()
  add_custom_target(${program}_descriptions ALL DEPENDS ${outputs})
  kalix_install_manual(${made}/man1/${program}.1 tools)
endfunction()

# Debian wants manual pages compressed.
function(kalix_install_manual page component)
  get_filename_component(extension ${page} LAST_EXT)
  string(SUBSTRING ${extension} 1 -1 section)
  set(directory ${CMAKE_INSTALL_MANDIR}/man${section})
  if(KALIX_DEBIAN)
    get_filename_component(name ${page} NAME)
    install(CODE "execute_process(COMMAND gzip -9nc INPUT_FILE \"${page}\"
  OUTPUT_FILE \"${CMAKE_CURRENT_BINARY_DIR}/${name}.gz\" COMMAND_ERROR_IS_FATAL ANY)
file(INSTALL \"${CMAKE_CURRENT_BINARY_DIR}/${name}.gz\" DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${directory}\")"
      COMPONENT ${component})
  else()
    install(FILES ${page} DESTINATION ${directory} COMPONENT ${component})
  endif()
endfunction()

# Debian's packages, one for each part: ./dev package configures with KALIX_DEBIAN below /usr and calls cpack.
set(debian ${CMAKE_CURRENT_LIST_DIR}/debian)
set(made ${CMAKE_CURRENT_BINARY_DIR}/debian)
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE kalix)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "kalix maintainers <maintainers@users.noreply.c-seed-d6e1c3d6.example>")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL "")
set(same_version "= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

# Copyright and changelog lie in every package; the changelog is CHANGELOG.md in Debian's form.
execute_process(COMMAND ${Python3_EXECUTABLE} ${debian}/changelog.py ${PROJECT_SOURCE_DIR}
    ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE} ${CPACK_DEBIAN_PACKAGE_MAINTAINER} ${made}/changelog.Debian.gz
  COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  ${debian}/changelog.py)

# kalix_package(PART NAME SECTION SUMMARY TEXT), with the maintainer scripts in debian/NAME; the rest goes by the
# variables that cpack reads.
function(kalix_package part name section summary text)
  string(TOUPPER ${part} key)
  install(FILES ${debian}/copyright ${made}/changelog.Debian.gz DESTINATION share/doc/${name} COMPONENT ${part})
  # The reasons that hold for all, and those of one.
  file(READ ${debian}/lintian-overrides overrides)
  if(EXISTS ${debian}/${name}.lintian-overrides)
    file(READ ${debian}/${name}.lintian-overrides own)
    string(APPEND overrides "${own}")
  endif()
  file(WRITE ${made}/overrides/${name} "${overrides}")
  install(FILES ${made}/overrides/${name} DESTINATION share/lintian/overrides COMPONENT ${part})
  file(GLOB controls CONFIGURE_DEPENDS ${debian}/${name}/*)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_CONTROL_EXTRA "${controls}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${text}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${part} PARENT_SCOPE)
endfunction()

kalix_package(server kalix graphics "GPU server for any Linux machine"
"Client processes submit 3D command buffers; kalix checks each against what
its client owns, draws it with a software device, and composes the screen
from what clients present. No graphics hardware is needed.
.
This package has the server, its device library, and the units that run it
as a user of its own.")
set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_SERVER_PACKAGE_RECOMMENDS "kalix-tools")

kalix_package(library libkalix0 libs "client library of the kalix GPU server"
"Programs draw through a kalix server with this library, which needs the C
library and nothing else.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SUGGESTS "kalix")
configure_file(${debian}/libkalix0.shlibs.in ${made}/shlibs @ONLY)
list(APPEND CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${made}/shlibs)

kalix_package(development libkalix-dev libdevel "client library of the kalix GPU server: development files"
"Headers for C and C++, files for pkg-config and CMake, examples, and the
documents for authors of clients.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkalix0 (${same_version})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)

if(KALIX_BUILD_TOOLS)
  kalix_package(tools kalix-tools graphics "tools for the kalix GPU server"
"Looking into a running server (kalixctl), showing its screen in a window, to
VNC viewers or in a browser (kalix-view), a private server for one command
(kalix-run), example scenes (kalix-demo) and measurements (kalix-bench).")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libkalix0 (${same_version})")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "kalix")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "novnc") # of kalix-view --web
endif()

kalix_package(python python3-kalix python "Python module for the kalix GPU server"
"Programs in Python draw through a kalix server with this module, which loads
the client library.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3, libkalix0 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)

include(CPack)

# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` puts where: docs/packaging.md has the table. Nothing of it names a folder of this machine, so
# that the installed tree can be moved as a whole.
#   component library      what a host needs to run
#   component development  what a host needs to be compiled
#   component tool         vorn, its profiles, manual pages and completions, and the rule for the USB reader
include(CMakePackageConfigHelpers)
set(VORN_UDEV_RULES_DIR "lib/udev/rules.d" CACHE STRING "Where the rule for the USB reader is installed")
set(VORN_BASH_COMPLETION_DIR "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" CACHE STRING
  "Where bash looks for completions")
set(VORN_ZSH_COMPLETION_DIR "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" CACHE STRING
  "Where zsh looks for completions")

# From one installed folder to another, for what is to be found wherever the tree stands.
function(vorn_way_between from to result)
  cmake_path(ABSOLUTE_PATH from BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
  cmake_path(ABSOLUTE_PATH to BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
  cmake_path(RELATIVE_PATH to BASE_DIRECTORY ${from} OUTPUT_VARIABLE way)
  string(REGEX REPLACE "/$" "" way "${way}")
  set(${result} ${way} PARENT_SCOPE)
endfunction()

# ---------------------------------------------------------------- library
# Hosts load it by its file name, so it stands in the loader's own folder, and its SONAME is that name.
install(TARGETS ICC_COMM_VORN EXPORT ICC_COMM_VORN
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)

# ---------------------------------------------------------------- development
install(FILES include/ICC_COMM_VORN.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(DIRECTORY include/vorn DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

set(cmake_package ${CMAKE_INSTALL_LIBDIR}/cmake/ICC_COMM_VORN)
install(EXPORT ICC_COMM_VORN DESTINATION ${cmake_package} NAMESPACE ICC_COMM_VORN::
  FILE ICC_COMM_VORNConfig.cmake COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ICC_COMM_VORNConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ICC_COMM_VORNConfigVersion.cmake DESTINATION ${cmake_package}
  COMPONENT development)

vorn_way_between(${CMAKE_INSTALL_LIBDIR}/pkgconfig . to_prefix)
configure_file(${CMAKE_CURRENT_LIST_DIR}/ICC_COMM_VORN.pc.in ${PROJECT_BINARY_DIR}/ICC_COMM_VORN.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ICC_COMM_VORN.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# ---------------------------------------------------------------- tool
if(VORN_SIM)
  vorn_way_between(${CMAKE_INSTALL_BINDIR} ${CMAKE_INSTALL_LIBDIR} to_library)
  set_target_properties(vorn PROPERTIES INSTALL_RPATH "$ORIGIN/${to_library}")
  install(TARGETS vorn RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(DIRECTORY sim/profiles/shipped/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vorn/profiles COMPONENT tool)
  install(FILES packaging/69-vorn.rules DESTINATION ${VORN_UDEV_RULES_DIR} COMPONENT tool)
  install(FILES tools/completion/vorn.bash DESTINATION ${VORN_BASH_COMPLETION_DIR} RENAME vorn COMPONENT tool OPTIONAL)
  install(FILES tools/completion/_vorn DESTINATION ${VORN_ZSH_COMPLETION_DIR} COMPONENT tool OPTIONAL)
endif()

# Target `man` makes the pages, where it was built; those of the calls and of the interface are for who writes hosts.
foreach(page "1:tool" "5:tool" "3:development" "7:development")
  string(REPLACE ":" ";" page ${page})
  list(GET page 0 section)
  list(GET page 1 component)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
    COMPONENT ${component} OPTIONAL FILES_MATCHING PATTERN "*.${section}")
endforeach()

install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/hosts COMPONENT development
  PATTERN CMakeLists.txt EXCLUDE)
foreach(page guide troubleshooting versions compatibility packaging)
  install(FILES docs/${page}.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
endforeach()

# ---------------------------------------------------------------- for those who run a counter
install(FILES LICENSE README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library)
install(DIRECTORY packaging/examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library)
# scripts/bill-of-materials writes it once library and tool are built; packaging/debian/rules has it do so.
install(FILES ${PROJECT_BINARY_DIR}/ICC_COMM_VORN.spdx.json DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library
  OPTIONAL)

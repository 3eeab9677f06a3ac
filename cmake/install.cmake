# Install rules: the shared library with its SONAME links, the header, the
# tool and the monitor, a CMake package (scadastore::scadastore), scadastore.pc,
# and a .deb built by CPack. Every installed path is relative, so the same
# files work under any prefix, including the package's /usr.
include(CMakePackageConfigHelpers)

set(SCADASTORE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/scadastore)
set(SCADASTORE_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS scadastore EXPORT scadastoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET scadastore-cli)
  set_target_properties(scadastore-cli PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS scadastore-cli scadastore-monitor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The daily retention run, shipped disabled: see the README to switch it on.
  install(FILES ${PROJECT_SOURCE_DIR}/tools/systemd/scadastore-retention.service
    ${PROJECT_SOURCE_DIR}/tools/systemd/scadastore-retention.timer
    DESTINATION lib/systemd/system)
endif()

install(EXPORT scadastoreTargets NAMESPACE scadastore:: DESTINATION ${SCADASTORE_CMAKE_DIR})
file(WRITE ${PROJECT_BINARY_DIR}/scadastoreConfig.cmake
  "include(\"\${CMAKE_CURRENT_LIST_DIR}/scadastoreTargets.cmake\")\n")
# Compatible versions share the SONAME.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(SCADASTORE_COMPATIBILITY SameMinorVersion)
else()
  set(SCADASTORE_COMPATIBILITY SameMajorVersion)
endif()
write_basic_package_version_file(${PROJECT_BINARY_DIR}/scadastoreConfigVersion.cmake
  COMPATIBILITY ${SCADASTORE_COMPATIBILITY})
install(FILES ${PROJECT_BINARY_DIR}/scadastoreConfig.cmake
  ${PROJECT_BINARY_DIR}/scadastoreConfigVersion.cmake DESTINATION ${SCADASTORE_CMAKE_DIR})

file(RELATIVE_PATH SCADASTORE_PC_TO_PREFIX /${SCADASTORE_PKGCONFIG_DIR} /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/scadastore.pc.in ${PROJECT_BINARY_DIR}/scadastore.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/scadastore.pc DESTINATION ${SCADASTORE_PKGCONFIG_DIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME scadastore)
set(CPACK_PACKAGE_VENDOR scadastore)
set(CPACK_PACKAGE_CONTACT "scadastore developers <scadastore@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The tool's --sqlite and demo use the SQLite driver; other databases bring their own.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS libsqliteodbc)
include(CPack)

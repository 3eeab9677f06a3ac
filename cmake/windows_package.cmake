# The Windows package: scadastore.dll, its import library, the header and the
# Windows tools, in a zip made by CPack (scadastore-<version>-win32|win64.zip).
install(TARGETS scadastore RUNTIME DESTINATION bin ARCHIVE DESTINATION lib)
install(FILES ${PROJECT_SOURCE_DIR}/include/scadastore.h DESTINATION include)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(CPACK_SYSTEM_NAME win64)
else()
  set(CPACK_SYSTEM_NAME win32)
endif()
set(CPACK_GENERATOR ZIP)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME scadastore)
set(CPACK_PACKAGE_VENDOR scadastore)
include(CPack)

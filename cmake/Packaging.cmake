# Installation into the places where PKCS#11 modules are looked for, and the Debian package.
set(QUARVEL_MODULE_DIR ${CMAKE_INSTALL_LIBDIR}/pkcs11)
set(QUARVEL_MODULE_PATH ${CMAKE_INSTALL_FULL_LIBDIR}/pkcs11/libquarvel.so)

install(TARGETS quarvel LIBRARY DESTINATION ${QUARVEL_MODULE_DIR})
configure_file(packaging/quarvel.module.in packaging/quarvel.module @ONLY)
configure_file(packaging/quarvel.pc.in packaging/quarvel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/quarvel.module DESTINATION ${CMAKE_INSTALL_DATADIR}/p11-kit/modules)
install(FILES ${PROJECT_BINARY_DIR}/packaging/quarvel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(TARGET quarvel-vcard)
  install(TARGETS quarvel-vcard RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# Debian wants manual page and changelog compressed, without a time stamp in them.
find_program(QUARVEL_GZIP gzip)
if(QUARVEL_GZIP)
  foreach(document quarvel-vcard.1 changelog)
    set(source ${PROJECT_SOURCE_DIR}/packaging/${document})
    set(compressed ${PROJECT_BINARY_DIR}/packaging/${document}.gz)
    add_custom_command(OUTPUT ${compressed} COMMAND ${QUARVEL_GZIP} -9nc ${source} > ${compressed} DEPENDS ${source}
      VERBATIM)
    list(APPEND compressed_documents ${compressed})
  endforeach()
  add_custom_target(quarvel_documents ALL DEPENDS ${compressed_documents})
  install(FILES ${PROJECT_BINARY_DIR}/packaging/quarvel-vcard.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${PROJECT_BINARY_DIR}/packaging/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()
install(FILES packaging/copyright README.md SECURITY.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES examples/sign.c DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY examples/jni DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR "Quarvel")
set(CPACK_PACKAGE_CONTACT "Quarvel developers <quarvel@quarvel.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "PKCS#11 module for smart cards in PC/SC readers")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Gives browsers, mail programs, OpenSSL and ssh access to the certificates
and keys on PIV, CardOS, IAS-ECC, A-Trust ACOS and ACOS EDU cards, and
registers itself with p11-kit. The package holds quarvel-vcard as well, which
puts simulated cards into the virtual reader of vsmartcard-vpcd.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS pcscd)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "p11-kit, vsmartcard-vpcd")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
include(CPack)

# Installs the service of halcyrix-release; run at installation, when the prefix is known for good.
set(bindir ${CMAKE_INSTALL_PREFIX}/bin)
set(sysconfdir ${CMAKE_INSTALL_PREFIX}/etc)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(sysconfdir /etc)
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/halcyrix-release.service.in
               ${halcyrix_scratch}/halcyrix-release.service @ONLY)
file(INSTALL ${halcyrix_scratch}/halcyrix-release.service
     DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
file(INSTALL ${CMAKE_CURRENT_LIST_DIR}/halcyrix-release.default
     DESTINATION ${sysconfdir}/default RENAME halcyrix-release)

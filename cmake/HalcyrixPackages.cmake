# The Debian packages: run cpack in the build folder.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME halcyrix)
set(CPACK_PACKAGE_CONTACT "Brenmoor <${HALCYRIX_SUPPORT_EMAIL}>")
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/data/debian/compress.cmake)

set(CPACK_COMPONENTS_ALL ${HALCYRIX_COMPONENTS})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_UPDATER_PACKAGE_NAME halcyrix-updater)
set(CPACK_DEBIAN_UPDATER_PACKAGE_SECTION net)
set(CPACK_DEBIAN_UPDATER_PACKAGE_RECOMMENDS hicolor-icon-theme)
set(CPACK_COMPONENT_UPDATER_DESCRIPTION
    "launcher of the online game Halcyrix\nInstalls Halcyrix Online in the home directory of the player, keeps it\nup to date with patches and resumed downloads, and starts it.")

set(CPACK_DEBIAN_RELEASE_PACKAGE_NAME halcyrix-release)
set(CPACK_DEBIAN_RELEASE_PACKAGE_SECTION net)
set(CPACK_DEBIAN_RELEASE_PACKAGE_DEPENDS adduser)
set(CPACK_DEBIAN_RELEASE_PACKAGE_SUGGESTS "haproxy, openssh-client, rsync")
set(CPACK_DEBIAN_RELEASE_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/data/debian/conffiles ${PROJECT_SOURCE_DIR}/data/debian/postinst
    ${PROJECT_SOURCE_DIR}/data/debian/prerm ${PROJECT_SOURCE_DIR}/data/debian/postrm)
set(CPACK_COMPONENT_RELEASE_DESCRIPTION
    "publish and serve releases of the online game Halcyrix\nPublishes releases of Halcyrix Online to a store, with patches from\nearlier ones, and serves the store to the updaters of the players.")

include(CPack)

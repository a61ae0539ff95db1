# Where an installed agent keeps its files (GNU layout under the prefix), and
# the Debian package CPack makes of them: `cpack -G DEB` in the build folder.
include(GNUInstallDirs)

set(HALYARD_DATA_DIR ${CMAKE_INSTALL_DATADIR}/halyard)
set(HALYARD_LIBEXEC_DIR ${CMAKE_INSTALL_LIBEXECDIR}/halyard)
# systemd looks for user units under /usr/local/lib as well as /usr/lib.
set(HALYARD_USER_UNIT_DIR lib/systemd/user)
set(HALYARD_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/halyard-backgrounder)

install(TARGETS halyard-backgrounder halyardctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET WakeToSyncToolTemplate)
  # Installed as a plain executable: the agent makes its own privileged copy
  # through pkexec when the user turns wake-to-sync on.
  install(TARGETS WakeToSyncToolTemplate RUNTIME DESTINATION ${HALYARD_LIBEXEC_DIR})
endif()

install(DIRECTORY resources/strings DESTINATION ${HALYARD_DATA_DIR})
if(EXISTS ${CMAKE_SOURCE_DIR}/resources/icons)
  install(DIRECTORY resources/icons DESTINATION ${HALYARD_DATA_DIR})
endif()

install(FILES resources/systemd/halyard-backgrounder.service DESTINATION ${HALYARD_USER_UNIT_DIR})
# Enabled for every user, as `systemctl --global enable` would do.
install(CODE "
  set(wants \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${HALYARD_USER_UNIT_DIR}/graphical-session.target.wants\")
  file(MAKE_DIRECTORY \"\${wants}\")
  file(CREATE_LINK ../halyard-backgrounder.service \"\${wants}/halyard-backgrounder.service\" SYMBOLIC)
")
# Desktops look for autostart entries in /etc/xdg (the default of
# $XDG_CONFIG_DIRS) whatever the prefix.
install(FILES resources/autostart/halyard-backgrounder.desktop DESTINATION /etc/xdg/autostart)
# The action names the template where it is installed: written at install
# time, as the package's prefix (/usr) is set only then. polkit reads actions
# from /usr/share alone, so the action goes there whatever the prefix; under
# /usr/local it would be ignored and pkexec would ask with its generic text.
install(CODE "
  set(HALYARD_WAKE_TOOL_TEMPLATE_PATH \"\${CMAKE_INSTALL_PREFIX}/${HALYARD_LIBEXEC_DIR}/WakeToSyncToolTemplate\")
  configure_file(${CMAKE_SOURCE_DIR}/resources/polkit/com.vantrel.halyard.wake-to-sync.policy.in
    \"\$ENV{DESTDIR}/usr/share/polkit-1/actions/com.vantrel.halyard.wake-to-sync.policy\" @ONLY)
")
install(FILES resources/completions/halyardctl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME halyardctl)
install(FILES resources/completions/_halyardctl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)

# Man pages and the changelog go compressed, as Debian keeps them.
set(compressed)
foreach(source man/halyard-backgrounder.1 man/halyardctl.1 packaging/changelog)
  get_filename_component(name ${source} NAME)
  set(out ${CMAKE_BINARY_DIR}/compressed/${name}.gz)
  add_custom_command(OUTPUT ${out}
    COMMAND gzip -9n -c ${CMAKE_SOURCE_DIR}/resources/${source} > ${out}
    DEPENDS ${CMAKE_SOURCE_DIR}/resources/${source} VERBATIM)
  list(APPEND compressed ${out})
endforeach()
add_custom_target(compressed_docs ALL DEPENDS ${compressed})
install(FILES ${CMAKE_BINARY_DIR}/compressed/halyard-backgrounder.1.gz ${CMAKE_BINARY_DIR}/compressed/halyardctl.1.gz
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${CMAKE_BINARY_DIR}/compressed/changelog.gz resources/packaging/copyright DESTINATION ${HALYARD_DOC_DIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME halyard-backgrounder)
set(CPACK_PACKAGE_VENDOR "Vantrel")
set(CPACK_PACKAGE_CONTACT "Halyard maintainers <maintainers@users.noreply.c-seed-92eda789.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "background agent that runs Halyard's scheduled synchronisations")
set(CPACK_PACKAGE_DESCRIPTION "The Halyard Backgrounder reads the schedule that the Halyard\n\
file-synchronisation application writes, wakes every second, and hands the\n\
synchronisations that are due to the application over the session bus,\n\
starting it when it is not running. It can show the next runs in the tray\n\
and keep the machine awake just before a run. The package also holds\n\
halyardctl, a command-line companion for schedules, archives and the bus.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://halyard.vantrel.example/")
# Library dependencies come from dpkg-shlibdeps; these are the programs the
# agent runs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "dbus-user-session | default-dbus-session-bus | dbus-session-bus, xdg-utils, zip, unzip")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pkexec")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_SOURCE_DIR}/resources/packaging/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
include(CPack)

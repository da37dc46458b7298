# Where things are installed, below CMAKE_INSTALL_PREFIX. Each component is a Debian package:
# `cmake --install build/host --component padtune --prefix DIR` is what the package of that name holds.

include(GNUInstallDirs)

# Headers keep their paths from the source root below this folder: they include each other by them.
set(PLATFORM_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/strata)

install(FILES docs/60-touch-board.rules DESTINATION lib/udev/rules.d COMPONENT padtune)

# Without those of the virtual player, which is run where it was built.
foreach(program padtune portprobe padreport)
    install(FILES ${CMAKE_BINARY_DIR}/man/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT padtune)
    install(FILES completions/${program} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        COMPONENT padtune)
endforeach()
install(FILES ${CMAKE_BINARY_DIR}/man/vantora-player.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT padtune)

# Where things are installed, below CMAKE_INSTALL_PREFIX. Each component is a Debian package:
# `cmake --install build/host --component padtune --prefix DIR` is what the package of that name holds.

include(GNUInstallDirs)

# Headers keep their paths from the source root below this folder: they include each other by them.
set(PLATFORM_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/strata)

install(FILES docs/60-touch-board.rules DESTINATION lib/udev/rules.d COMPONENT padtune)

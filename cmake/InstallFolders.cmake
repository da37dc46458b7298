# Where things are installed, below CMAKE_INSTALL_PREFIX. Each component is a Debian package:
# `cmake --install build/host --component padtune --prefix DIR` is what the package of that name holds.

include(GNUInstallDirs)


install(FILES docs/60-touch-board.rules DESTINATION lib/udev/rules.d COMPONENT padtune)

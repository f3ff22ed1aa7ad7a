# Runs at install time, so the desktop entry and the user unit name the executable where this
# install put it, whatever prefix `cmake --install --prefix` chose.
set(KESTROW_INSTALLED_EXECUTABLE "${CMAKE_INSTALL_PREFIX}/bin/KestrowBrimlet")
set(destination "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
configure_file("${KESTROW_SOURCE}/app/linux/kestrow-brimlet.desktop.in"
               "${destination}/share/applications/kestrow-brimlet.desktop" @ONLY)
configure_file("${KESTROW_SOURCE}/app/linux/kestrow-brimlet.service.in"
               "${destination}/lib/systemd/user/kestrow-brimlet.service" @ONLY)
message(STATUS "Installing: ${destination}/share/applications/kestrow-brimlet.desktop")
message(STATUS "Installing: ${destination}/lib/systemd/user/kestrow-brimlet.service")

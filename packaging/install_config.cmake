# Install-time part of the "server" component: the systemd unit and the
# example INI, written for the prefix being installed to (/usr in the package,
# PREFIX for make install). file(INSTALL) adds DESTDIR.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(bs_etc /etc/batchserver)
else()
  set(bs_etc "${CMAKE_INSTALL_PREFIX}/etc/batchserver")
endif()
set(bs_bin "${CMAKE_INSTALL_PREFIX}/bin")
file(MAKE_DIRECTORY "${BS_STAGING_DIR}")

file(READ "${BS_SOURCE_DIR}/examples/systemd/batchserver@.service" bs_unit)
string(REPLACE "/usr/bin/" "${bs_bin}/" bs_unit "${bs_unit}")
string(REPLACE "/etc/batchserver/" "${bs_etc}/" bs_unit "${bs_unit}")
string(REPLACE "/usr/share/" "${CMAKE_INSTALL_PREFIX}/share/" bs_unit "${bs_unit}")
file(WRITE "${BS_STAGING_DIR}/batchserver@.service" "${bs_unit}")
file(INSTALL "${BS_STAGING_DIR}/batchserver@.service" DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/systemd/system")

# The example section, pointed at the installed stand-in library and at the
# directories the package makes. file(READ) may drop the CRs; the server
# needs CR LF, so the line ends are made CR LF again at the end.
file(READ "${BS_SOURCE_DIR}/examples/batchserver.ini" bs_ini)
string(REPLACE "\r\n" "\n" bs_ini "${bs_ini}")
string(REPLACE "from the top of the source tree with" "with" bs_ini "${bs_ini}")
string(REPLACE "build/bin/batchserver SRV1 examples/batchserver.ini"
               "${bs_bin}/batchserver SRV1 ${bs_etc}/batchserver.ini" bs_ini "${bs_ini}")
string(REPLACE "the stand in built with this project" "the stand in of batchserver-sapsim" bs_ini "${bs_ini}")
string(REGEX REPLACE "sap\\.library=[^\r\n]*" "sap.library=${CMAKE_INSTALL_PREFIX}/lib/librfcsim.so"
       bs_ini "${bs_ini}")
string(REGEX REPLACE "sap\\.path=[^\r\n]*" "sap.path=/var/log/batchserver" bs_ini "${bs_ini}")
string(REGEX REPLACE "xml\\.path=[^\r\n]*" "xml.path=/var/lib/batchserver/xml" bs_ini "${bs_ini}")
string(REPLACE "\n" "\r\n" bs_ini "${bs_ini}")
file(WRITE "${BS_STAGING_DIR}/batchserver.ini" "${bs_ini}")
if(EXISTS "$ENV{DESTDIR}${bs_etc}/batchserver.ini")
  # An installed INI is the operator's: never overwritten.
  message(STATUS "Kept: $ENV{DESTDIR}${bs_etc}/batchserver.ini")
else()
  file(INSTALL "${BS_STAGING_DIR}/batchserver.ini" DESTINATION "${bs_etc}")
endif()

# Debian's clearsilver-dev ships neither a CMake nor a pkg-config file. The targets are SYSTEM targets:
# the library's headers do not pass our warnings. Only the HDF trees and the URL escaping are used.
find_path(ClearSilver_INCLUDE_DIR util/neo_hdf.h PATH_SUFFIXES ClearSilver)
foreach(part IN ITEMS utl cs cgi)
  find_library(ClearSilver_${part}_LIBRARY NAMES neo_${part})
endforeach()
find_package(ZLIB QUIET)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(ClearSilver REQUIRED_VARS ClearSilver_INCLUDE_DIR
  ClearSilver_utl_LIBRARY ClearSilver_cs_LIBRARY ClearSilver_cgi_LIBRARY ZLIB_FOUND)

if(ClearSilver_FOUND AND NOT TARGET ClearSilver::cgi)
  foreach(part IN ITEMS utl cs cgi)
    add_library(ClearSilver::${part} STATIC IMPORTED)
    set_target_properties(ClearSilver::${part} PROPERTIES
      IMPORTED_LOCATION "${ClearSilver_${part}_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${ClearSilver_INCLUDE_DIR}")
  endforeach()
  set_property(TARGET ClearSilver::cs PROPERTY INTERFACE_LINK_LIBRARIES ClearSilver::utl)
  set_property(TARGET ClearSilver::cgi PROPERTY INTERFACE_LINK_LIBRARIES ClearSilver::cs ZLIB::ZLIB)
endif()

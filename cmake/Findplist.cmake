# This finds libplist, which reads property lists where the system itself cannot.
if(NOT TARGET plist::plist)
  find_path(PLIST_INCLUDE_DIR plist/plist.h)
  find_library(PLIST_LIBRARY NAMES plist-2.0 plist)
  if(PLIST_INCLUDE_DIR AND PLIST_LIBRARY)
    add_library(plist::plist UNKNOWN IMPORTED)
    set_target_properties(plist::plist PROPERTIES IMPORTED_LOCATION ${PLIST_LIBRARY}
      INTERFACE_INCLUDE_DIRECTORIES ${PLIST_INCLUDE_DIR})
  endif()
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(plist REQUIRED_VARS PLIST_LIBRARY PLIST_INCLUDE_DIR)

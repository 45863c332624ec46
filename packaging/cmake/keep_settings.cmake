# Run by the installation: puts ${ZORN_SETTINGS} at ${ZORN_SETTINGS_PLACE}, unless a file is there.

if(EXISTS $ENV{DESTDIR}${ZORN_SETTINGS_PLACE})
  message(STATUS "Kept: $ENV{DESTDIR}${ZORN_SETTINGS_PLACE}")
else()
  get_filename_component(folder ${ZORN_SETTINGS_PLACE} DIRECTORY)
  file(INSTALL DESTINATION ${folder} TYPE FILE FILES ${ZORN_SETTINGS})
endif()

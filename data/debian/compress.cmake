# Debian compresses man pages and changelogs; run by cpack on what it is about to package.
file(GLOB_RECURSE texts ${CPACK_TEMPORARY_DIRECTORY}/*.1 ${CPACK_TEMPORARY_DIRECTORY}/changelog)
foreach(text ${texts})
  execute_process(COMMAND gzip -9nf ${text} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

# Installs a build and moves the tree: cmake -D BUILD=<build> -D FIRST=<directory> -D PREFIX=<directory> -P
file(REMOVE_RECURSE ${FIRST} ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${FIRST} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${FIRST} ${PREFIX})

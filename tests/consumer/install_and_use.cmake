# Installs the library of `build` below `work`, then builds and runs `project` with it.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${work})
foreach(component runtime development)
  run(${CMAKE_COMMAND} --install ${build} --component ${component} --prefix ${work}/installed)
endforeach()
run(${CMAKE_COMMAND} -S ${project} -B ${work}/build -G Ninja -D CMAKE_C_COMPILER=${c_compiler}
  -D CMAKE_PREFIX_PATH=${work}/installed)
run(${CMAKE_COMMAND} --build ${work}/build)
run(${work}/build/with_shared)
run(${work}/build/with_static)

# Runs a libFuzzer target briefly and reproducibly from new seeds and the inputs of an archive:
#   cmake -D REPLAY=... -D FUZZ=... -D INPUTS=... -D CORPUS=... -D MAX_LEN=... -P run_libfuzzer.cmake
file(REMOVE_RECURSE ${CORPUS})
execute_process(COMMAND ${REPLAY} seeds ${CORPUS} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${REPLAY} unpack ${INPUTS} ${CORPUS} COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND ${FUZZ} -runs=100000 -max_total_time=7 -seed=1 -max_len=${MAX_LEN} -print_final_stats=1
    -artifact_prefix=${CORPUS}- ${CORPUS}
  COMMAND_ERROR_IS_FATAL ANY)

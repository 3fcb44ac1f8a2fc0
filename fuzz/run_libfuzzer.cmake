# Runs a libFuzzer target briefly and reproducibly from new seeds and the inputs of an archive:
#   cmake -D REPLAY=... -D FUZZ=... -D INPUTS=... -D CORPUS=... -P run_libfuzzer.cmake
# There is no -max_len: libFuzzer would cut longer inputs of the archive.  So the limit is the length of the longest
# one, but at least 4096.
file(REMOVE_RECURSE ${CORPUS})
execute_process(COMMAND ${REPLAY} seeds ${CORPUS} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${REPLAY} unpack ${INPUTS} ${CORPUS} COMMAND_ERROR_IS_FATAL ANY)
execute_process(
  COMMAND ${FUZZ} -runs=100000 -max_total_time=7 -seed=1 -print_final_stats=1
    -artifact_prefix=${CORPUS}- ${CORPUS}
  COMMAND_ERROR_IS_FATAL ANY)

# The training run of the instrumented formfill (see ProfileGuided.cmake),
# as a script: cmake -DFORMFILL=... -DPROFILES=... -DSOURCE=... -DWORK=...
# -DPYTHON=... -DSTAMP=... -P TrainProfile.cmake
#
# Counts of earlier runs are dropped first: the instrumented program adds
# its counts to the files it finds.

file(REMOVE_RECURSE "${PROFILES}" "${WORK}")
file(MAKE_DIRECTORY "${WORK}/payroll" "${WORK}/examples")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status
                  OUTPUT_QUIET ERROR_VARIABLE errors)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "training run failed (${status}): ${ARGN}\n${errors}")
  endif()
endfunction()

# A payroll register of 10,000 records with the benchmark's own template.
run("${PYTHON}" "${SOURCE}/bench/gen_payroll.py" 10000 --seed 1
    -o "${WORK}/payroll/table.txt")
file(COPY "${SOURCE}/bench/form.1" "${SOURCE}/bench/form.2"
          "${SOURCE}/bench/form.3" DESTINATION "${WORK}/payroll")
run(${CMAKE_COMMAND} -E chdir "${WORK}/payroll" ${CMAKE_COMMAND} -E env
    LANG=C.UTF-8 "${FORMFILL}" -Bform -Itable.txt -Oout.txt)

# The delivery note of the examples, as the demo fills it.
file(COPY "${SOURCE}/examples/" DESTINATION "${WORK}/examples")
run(${CMAKE_COMMAND} -E chdir "${WORK}/examples" ${CMAKE_COMMAND} -E env
    LANG=C.UTF-8 "${FORMFILL}" -Bform -Itable.txt -Odelivery.txt
    -Fletterhead.par)

file(REMOVE_RECURSE "${WORK}")
file(TOUCH "${STAMP}")
